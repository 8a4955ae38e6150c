// Gateway URLs are composed in a 2048-byte buffer, as the gateway expects. A URL that would
// not fit (for instance because of an overlong device index) is refused, never cut into a
// different URL.
#pragma once

#include <string>

namespace QXKORVAProtocol {

constexpr size_t kGatewayUrlBufferSize = 2048;

// printf-style formatting into a zero-filled 2048-byte buffer. True and *out set when the
// whole text fits (at most 2047 bytes); false and *out emptied otherwise.
bool formatGatewayUrl(std::string* out, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

}  // namespace QXKORVAProtocol
