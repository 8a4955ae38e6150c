// Parsing of a Digest Authorization header (RFC 7616 / RFC 9110 auth-param syntax).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "gateway/hostlib/digest_math.h"

namespace korva::host::digest {

// Headers longer than this are refused before parsing.
constexpr size_t kMaxAuthorizationLength = 5121;
// At most this many auth-params.
constexpr size_t kMaxParams = 32;

// Splits `Digest name=value, name="quoted \"value\"", ...` into (lower-case name, value) pairs,
// with quoted-pair escapes resolved. Parameters may come in any order; empty list elements are
// allowed. nullopt when the scheme is not Digest, the syntax is broken, a name repeats, or a
// limit is exceeded.
std::optional<std::vector<std::pair<std::string, std::string>>> parseAuthParams(
    std::string_view header);

// The credentials of a Digest Authorization header with qop "auth".
struct DigestCredentials {
    std::string username;
    std::string realm;
    std::string nonce;
    std::string uri;
    std::string response;  // lower-case hex
    std::string qop;       // "auth"
    std::string nc;        // 8 hex digits as sent
    uint32_t ncValue = 0;  // nc as a number (never 0)
    std::string cnonce;
    Algorithm algorithm = Algorithm::kMd5;
};

// nullopt when a required parameter is missing or unusable: qop other than auth, an algorithm
// other than MD5 or SHA-256, nc not 8 hex digits or 0, a response of the wrong length, userhash.
std::optional<DigestCredentials> parseCredentials(std::string_view header);

}  // namespace korva::host::digest
