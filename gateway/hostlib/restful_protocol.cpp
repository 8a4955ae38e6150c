// URL matching and method names of the REST protocol base class.
#include "host/restful_protocol.h"

#include <string_view>

#include "gateway/hostlib/ascii_case.h"
#include "gateway/hostlib/query_string.h"

namespace QXBase {

namespace {

std::string_view pathOf(const std::string& url) {
    std::string_view view(url);
    return view.substr(0, view.find('?'));
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Does path match pattern, "%d" standing for one decimal integer?
bool matchWithInts(std::string_view path, std::string_view pattern) {
    size_t p = 0;
    size_t i = 0;
    while (p < pattern.size()) {
        if (pattern.compare(p, 2, "%d") == 0) {
            if (i < path.size() && path[i] == '-') ++i;
            const size_t digits = i;
            while (i < path.size() && isDigit(path[i])) ++i;
            if (i == digits) return false;
            p += 2;
            continue;
        }
        if (i >= path.size() || path[i] != pattern[p]) return false;
        ++i;
        ++p;
    }
    return i == path.size();
}

size_t countInts(std::string_view pattern) {
    size_t count = 0;
    for (size_t at = pattern.find("%d"); at != std::string_view::npos;
         at = pattern.find("%d", at + 2)) {
        ++count;
    }
    return count;
}

// A query field name=value (name compared exactly, value case-insensitively).
bool hasQueryParam(const std::string& url, std::string_view name, std::string_view value) {
    for (const auto& [field, got] : korva::queryFields(url)) {
        if (field == name && korva::equalsIgnoreCase(got, value)) return true;
    }
    return false;
}

}  // namespace

// The request asks for a JSON answer ("format=json").
int CRESTfulProtocol::IsJsonURL(const std::string& url) {
    return hasQueryParam(url, "format", "json") ? 1 : 0;
}

// The request asks for Chinese texts ("language=cn" or "language=zh").
int CRESTfulProtocol::isLanguageCNURL(const std::string& url) {
    return hasQueryParam(url, "language", "cn") || hasQueryParam(url, "language", "zh") ? 1 : 0;
}

// The request names a device ("devIndex=..." in the query).
int CRESTfulProtocol::isDeviceURL(const std::string& url) {
    for (const auto& [field, value] : korva::queryFields(url)) {
        if (field == "devIndex" && !value.empty()) return 1;
    }
    return 0;
}

int CRESTfulProtocol::cmpURL(const std::string& url, const char* pattern) {
    if (pattern == nullptr) return 0;
    return pathOf(url) == std::string_view(pattern) ? 1 : 0;
}

int CRESTfulProtocol::cmpURLWithInt(const std::string& url, const char* pattern, int count) {
    if (pattern == nullptr || count < 0) return 0;
    std::string_view view(pattern);
    if (countInts(view) != static_cast<size_t>(count)) return 0;
    return matchWithInts(pathOf(url), view) ? 1 : 0;
}

std::string CRESTfulProtocol::GetMethod(unsigned char method) {
    switch (method) {
        case 0:
            return "GET";
        case 1:
            return "PUT";
        case 2:
            return "POST";
        case 3:
            return "DELETE";
        default:
            return "UNKNOWN";
    }
}

}  // namespace QXBase
