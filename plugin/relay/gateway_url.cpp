#include "plugin/relay/gateway_url.h"

#include <cstdarg>
#include <cstdio>

namespace QXKORVAProtocol {

bool formatGatewayUrl(std::string* out, const char* format, ...) {
    if (out == nullptr) return false;
    if (format == nullptr) {
        out->clear();
        return false;
    }
    char buffer[kGatewayUrlBufferSize] = {};
    va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(buffer, sizeof(buffer), format, args);
    va_end(args);
    if (length < 0 || static_cast<size_t>(length) >= sizeof(buffer)) {
        out->clear();
        return false;
    }
    out->assign(buffer, static_cast<size_t>(length));
    return true;
}

bool makeGatewayUrl(std::string* out, const std::string& path, const std::string& devIndex) {
    return formatGatewayUrl(out, "%s?format=json&devIndex=%s", path.c_str(), devIndex.c_str());
}

std::string expandIntFields(const char* pattern, const int64_t* values, int count) {
    std::string out;
    int used = 0;
    for (const char* p = pattern; *p != '\0'; ++p) {
        if (p[0] == '%' && p[1] == 'd' && used < count) {
            out += std::to_string(values[used++]);
            ++p;
        } else {
            out += *p;
        }
    }
    return out;
}

}  // namespace QXKORVAProtocol
