// Gateway URLs: "<path>?format=json&devIndex=<device>", composed in a 2048-byte buffer, as the
// gateway expects. A URL that would not fit (for instance because of an overlong device index)
// is refused, never cut into a different URL.
// Thread safety: pure functions.
#pragma once

#include <cstdint>
#include <string>

namespace QXKORVAProtocol {

constexpr size_t kGatewayUrlBufferSize = 2048;

// printf-style formatting into a zero-filled 2048-byte buffer. True and *out set when the
// whole text fits (at most 2047 bytes); false and *out emptied otherwise.
bool formatGatewayUrl(std::string* out, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

// *out = "<path>?format=json&devIndex=<devIndex>". False, *out emptied, when it would not fit.
bool makeGatewayUrl(std::string* out, const std::string& path, const std::string& devIndex);

// pattern with each "%d" replaced, in order, by the next of count values in decimal; "%d"
// beyond count stay as they are.
std::string expandIntFields(const char* pattern, const int64_t* values, int count);

}  // namespace QXKORVAProtocol
