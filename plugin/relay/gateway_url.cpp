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

}  // namespace QXKORVAProtocol
