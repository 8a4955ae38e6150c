#include "gateway/server/http_answer.h"

#include <cstdint>
#include <limits>

namespace korva::gateway {

namespace http = boost::beast::http;

namespace {

// Beast keeps the length of a header's name and of its value (each with its separator) in 16
// bits.
constexpr std::size_t kMaxHeaderText = std::numeric_limits<std::uint16_t>::max() - 2;

bool framingHeader(const std::string& name) {
    return equalsIgnoreCase(name, "Content-Length") || equalsIgnoreCase(name, "Connection") ||
           equalsIgnoreCase(name, "Transfer-Encoding");
}

bool sendableText(const std::string& text) {
    if (text.size() > kMaxHeaderText) return false;
    for (char c : text) {
        if (c == '\r' || c == '\n' || c == '\0') return false;
    }
    return true;
}

// Status line and the given headers; framing is the caller's.
HttpAnswer answerHead(int status, const HeaderList& headers) {
    if (status < 100 || status > 999) status = 500;
    HttpAnswer answer;
    answer.version(11);
    answer.result(static_cast<unsigned>(status));
    for (const auto& [name, value] : headers) {
        if (name.empty() || framingHeader(name) || !sendableText(name) || !sendableText(value))
            continue;
        answer.insert(name, value);
    }
    return answer;
}

}  // namespace

HttpAnswer makeAnswer(int status, const HeaderList& headers, std::string body, bool keepAlive) {
    HttpAnswer answer = answerHead(status, headers);
    answer.set(http::field::content_length, std::to_string(body.size()));
    answer.set(http::field::connection, keepAlive ? "keep-alive" : "close");
    answer.body() = std::move(body);
    return answer;
}

HttpAnswer makeStreamHead(int status, const HeaderList& headers) {
    HttpAnswer answer = answerHead(status, headers);
    answer.set(http::field::connection, "close");
    return answer;
}

}  // namespace korva::gateway
