#include "gateway/server/request_check.h"

#include <strings.h>

#include <array>
#include <boost/beast/core/string.hpp>
#include <boost/beast/http/field.hpp>
#include <vector>

namespace korva::gateway {

namespace http = boost::beast::http;

namespace {

struct RefusalRow {
    HeadRefusal refusal;
    RefusalAnswer answer;
};

constexpr std::array<RefusalRow, 10> kRefusals = {{
    {HeadRefusal::kNone, {200, ""}},
    {HeadRefusal::kTargetTooLong, {414, "request target too long"}},
    {HeadRefusal::kTargetForm, {400, "request target must be a path or an absolute http URI"}},
    {HeadRefusal::kHostMissing, {400, "HTTP/1.1 request without Host header"}},
    {HeadRefusal::kHostRepeated, {400, "more than one Host header"}},
    {HeadRefusal::kHostInvalid, {400, "invalid Host header"}},
    {HeadRefusal::kCodingOnHttp10, {400, "Transfer-Encoding in an HTTP/1.0 request"}},
    {HeadRefusal::kCodingWithLength, {400, "both Transfer-Encoding and Content-Length"}},
    {HeadRefusal::kCodingNotChunked, {400, "Transfer-Encoding must end with chunked, once"}},
    {HeadRefusal::kCodingUnsupported, {501, "only the chunked transfer coding is supported"}},
}};

std::string_view trim(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    return text;
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
bool isHex(char c) {
    return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
bool isAlnum(char c) {
    return isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool validPort(std::string_view port) {
    if (port.size() > 5) return false;
    for (char c : port) {
        if (!isDigit(c)) return false;
    }
    return true;
}

// reg-name: unreserved, percent escapes and sub-delims.
bool validRegName(std::string_view name) {
    static constexpr std::string_view kAllowed = "-._~!$&'()*+,;=";
    for (std::size_t i = 0; i < name.size(); ++i) {
        const char c = name[i];
        if (c == '%') {
            if (i + 2 >= name.size() || !isHex(name[i + 1]) || !isHex(name[i + 2])) return false;
            i += 2;
        } else if (!isAlnum(c) && kAllowed.find(c) == std::string_view::npos) {
            return false;
        }
    }
    return true;
}

// host [":" port], host being a name, an IPv4 address or a bracketed IPv6 literal; empty is
// allowed (a target whose authority is empty).
bool validHost(std::string_view host) {
    if (!host.empty() && host.front() == '[') {
        const auto close = host.find(']');
        if (close == std::string_view::npos || close < 2) return false;
        for (char c : host.substr(1, close - 1)) {
            if (!isHex(c) && c != ':' && c != '.') return false;
        }
        const std::string_view rest = host.substr(close + 1);
        return rest.empty() || (rest.front() == ':' && validPort(rest.substr(1)));
    }
    const auto colon = host.rfind(':');
    if (colon == std::string_view::npos) return validRegName(host);
    return validRegName(host.substr(0, colon)) && validPort(host.substr(colon + 1));
}

// Length of the scheme and "://" of an http or https absolute-form target, 0 for other forms.
std::size_t absolutePrefix(std::string_view target) {
    for (std::string_view scheme : {std::string_view("http://"), std::string_view("https://")}) {
        if (target.size() >= scheme.size() &&
            strncasecmp(target.data(), scheme.data(), scheme.size()) == 0) {
            return scheme.size();
        }
    }
    return 0;
}

HeadRefusal checkTarget(const http::request_header<>& head, std::size_t maxTargetBytes) {
    const std::string_view target(head.target().data(), head.target().size());
    if (target.size() > maxTargetBytes) return HeadRefusal::kTargetTooLong;
    if (!target.empty() && target.front() == '/') return HeadRefusal::kNone;
    if (target == "*" && head.method() == http::verb::options) return HeadRefusal::kNone;
    const std::size_t prefix = absolutePrefix(target);
    if (prefix == 0) return HeadRefusal::kTargetForm;
    const std::string_view rest = target.substr(prefix);
    const std::string_view authority = rest.substr(0, rest.find_first_of("/?#"));
    if (authority.find('@') != std::string_view::npos || !validHost(authority)) {
        return HeadRefusal::kTargetForm;
    }
    return HeadRefusal::kNone;
}

HeadRefusal checkHost(const http::request_header<>& head) {
    const auto hosts = head.count(http::field::host);
    if (hosts > 1) return HeadRefusal::kHostRepeated;
    if (hosts == 0) return head.version() >= 11 ? HeadRefusal::kHostMissing : HeadRefusal::kNone;
    const auto value = head[http::field::host];
    return validHost(trim(std::string_view(value.data(), value.size())))
               ? HeadRefusal::kNone
               : HeadRefusal::kHostInvalid;
}

// Transfer codings of every Transfer-Encoding field, in order (empty list elements skipped).
std::vector<std::string_view> transferCodings(const http::request_header<>& head) {
    std::vector<std::string_view> codings;
    for (auto range = head.equal_range(http::field::transfer_encoding); range.first != range.second;
         ++range.first) {
        std::string_view list(range.first->value().data(), range.first->value().size());
        while (!list.empty()) {
            const auto comma = list.find(',');
            const std::string_view element = trim(list.substr(0, comma));
            if (!element.empty()) codings.push_back(element);
            list = comma == std::string_view::npos ? std::string_view() : list.substr(comma + 1);
        }
    }
    return codings;
}

bool isChunked(std::string_view coding) {
    return coding.size() == 7 && strncasecmp(coding.data(), "chunked", 7) == 0;
}

HeadRefusal checkFraming(const http::request_header<>& head) {
    if (head.count(http::field::transfer_encoding) == 0) return HeadRefusal::kNone;
    if (head.version() < 11) return HeadRefusal::kCodingOnHttp10;
    if (head.count(http::field::content_length) != 0) return HeadRefusal::kCodingWithLength;
    const auto codings = transferCodings(head);
    if (codings.empty() || !isChunked(codings.back())) return HeadRefusal::kCodingNotChunked;
    for (std::size_t i = 0; i + 1 < codings.size(); ++i) {
        if (isChunked(codings[i])) return HeadRefusal::kCodingNotChunked;
    }
    return codings.size() == 1 ? HeadRefusal::kNone : HeadRefusal::kCodingUnsupported;
}

}  // namespace

HeadRefusal checkRequestHead(const http::request_header<>& head, std::size_t maxTargetBytes) {
    // Framing first: when it is in doubt nothing else of the request is trusted.
    for (const auto check : {checkFraming(head), checkTarget(head, maxTargetBytes)}) {
        if (check != HeadRefusal::kNone) return check;
    }
    return checkHost(head);
}

RefusalAnswer refusalAnswer(HeadRefusal refusal) {
    for (const auto& row : kRefusals) {
        if (row.refusal == refusal) return row.answer;
    }
    return {400, "malformed request"};
}

std::string originForm(std::string_view target) {
    const std::size_t prefix = absolutePrefix(target);
    if (prefix == 0) return std::string(target);
    const std::string_view rest = target.substr(prefix);
    const auto path = rest.find_first_of("/?");
    if (path == std::string_view::npos) return "/";
    const std::string_view origin = rest.substr(path);
    std::string out;
    if (origin.front() == '?') out += '/';
    out.append(origin.data(), origin.size());
    return out;
}

bool requestLineTooLong(std::string_view bytes, std::size_t maxTargetBytes) {
    const std::string_view line = bytes.substr(0, bytes.find('\n'));
    const auto start = line.find(' ');
    if (start == std::string_view::npos) return false;
    const auto end = line.find(' ', start + 1);
    const std::size_t length = (end == std::string_view::npos ? line.size() : end) - start - 1;
    return length > maxTargetBytes;
}

}  // namespace korva::gateway
