// The arithmetic of HTTP digest authentication (RFC 7616, qop "auth"), kept apart from the
// check's state so that it can be verified against published examples.
#pragma once

#include <openssl/evp.h>

#include <string>
#include <string_view>

namespace korva::host::digest {

enum class Algorithm { kMd5, kSha256 };

// The algorithm's token in an Authorization header or challenge ("MD5", "SHA-256").
const char* algorithmName(Algorithm algorithm);

// The OpenSSL digest, fetched once per process and reused (null only if OpenSSL lacks it).
const EVP_MD* messageDigest(Algorithm algorithm);

// Lower-case hexadecimal hash of data.
std::string hashHex(Algorithm algorithm, std::string_view data);

// H(username ":" realm ":" password)
std::string ha1(Algorithm algorithm, std::string_view username, std::string_view realm,
                std::string_view password);
// H(method ":" uri)
std::string ha2(Algorithm algorithm, std::string_view method, std::string_view uri);
// H(ha1 ":" nonce ":" nc ":" cnonce ":" qop ":" ha2)
std::string response(Algorithm algorithm, std::string_view ha1, std::string_view nonce,
                     std::string_view nc, std::string_view cnonce, std::string_view qop,
                     std::string_view ha2);

// Constant-time equality of two texts (lengths are not secret).
bool constantTimeEquals(std::string_view a, std::string_view b);

}  // namespace korva::host::digest
