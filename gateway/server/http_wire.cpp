#include "gateway/server/http_wire.h"

#include <boost/beast/http/status.hpp>
#include <cstdio>
#include <ostream>  // the status header needs it

#include "gateway/hostlib/ascii_case.h"
#include "gateway/hostlib/json_text.h"

namespace korva::gateway {

namespace {

bool framingHeader(const std::string& name) {
    return equalsIgnoreCase(name, "Content-Length") || equalsIgnoreCase(name, "Connection") ||
           equalsIgnoreCase(name, "Transfer-Encoding");
}

bool safeHeaderText(const std::string& text) {
    for (char c : text) {
        if (c == '\r' || c == '\n' || c == '\0') return false;
    }
    return true;
}

void appendStatusLine(std::string& out, int status) {
    if (status < 100 || status > 999) status = 500;
    auto reason =
        boost::beast::http::obsolete_reason(static_cast<boost::beast::http::status>(status));
    out += "HTTP/1.1 ";
    out += std::to_string(status);
    out += ' ';
    out.append(reason.data(), reason.size());
    out += "\r\n";
}

void appendHeaders(std::string& out, const HeaderList& headers) {
    for (const auto& [name, value] : headers) {
        // A header that would split the head is dropped rather than sent.
        if (name.empty() || framingHeader(name) || !safeHeaderText(name) || !safeHeaderText(value))
            continue;
        out += name;
        out += ": ";
        out += value;
        out += "\r\n";
    }
}

}  // namespace

std::string guessContentType(const std::string& body) {
    for (char c : body) {
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n') continue;
        if (c == '<') return "application/xml";
        if (c == '{' || c == '[') return "application/json";
        break;
    }
    return body.empty() ? "" : "text/plain";
}

bool hasHeader(const HeaderList& headers, const std::string& name) {
    for (const auto& header : headers) {
        if (equalsIgnoreCase(header.first, name)) return true;
    }
    return false;
}

void addDefaultContentType(HeaderList& headers, const std::string& body) {
    if (hasHeader(headers, "Content-Type")) return;
    std::string type = guessContentType(body);
    if (!type.empty()) headers.emplace_back("Content-Type", std::move(type));
}

std::string formatAnswerHead(int status, const HeaderList& headers, std::size_t contentLength,
                             bool keepAlive) {
    std::string out;
    out.reserve(256);
    appendStatusLine(out, status);
    appendHeaders(out, headers);
    out += "Content-Length: ";
    out += std::to_string(contentLength);
    out += keepAlive ? "\r\nConnection: keep-alive\r\n\r\n" : "\r\nConnection: close\r\n\r\n";
    return out;
}

std::string formatAnswer(int status, const HeaderList& headers, const std::string& body,
                         bool keepAlive) {
    std::string out = formatAnswerHead(status, headers, body.size(), keepAlive);
    out += body;
    return out;
}

int answerStatus(const std::string& bytes) {
    constexpr std::size_t kCodeAt = sizeof "HTTP/1.1 " - 1;
    if (bytes.size() < kCodeAt + 3 || bytes.compare(0, kCodeAt, "HTTP/1.1 ") != 0) return 0;
    int status = 0;
    for (std::size_t i = kCodeAt; i < kCodeAt + 3; ++i) {
        if (bytes[i] < '0' || bytes[i] > '9') return 0;
        status = status * 10 + (bytes[i] - '0');
    }
    return status;
}

std::string formatStreamHead(int status, const HeaderList& headers) {
    std::string out;
    appendStatusLine(out, status);
    appendHeaders(out, headers);
    out += "Connection: close\r\n\r\n";
    return out;
}

std::string jsonError(int status, const std::string& text) {
    Json::Value error(Json::objectValue);
    error["error"] = text;
    error["status"] = status;
    return korva::host::writeCompactJson(error) + "\n";
}

}  // namespace korva::gateway
