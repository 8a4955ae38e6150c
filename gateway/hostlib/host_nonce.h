// Digest nonces the host can verify later: base64url (no padding) of an 8-byte issue time on the
// monotonic host clock, 8 random bytes and the first 16 bytes of HMAC-SHA256 over both under a
// per-process random secret. 43 characters.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace korva::host::detail {

constexpr size_t kNonceLength = 43;

// A fresh nonce issued now ("" only when the system's random source fails).
std::string createNonce();

// True when the nonce was issued by this process; *issuedMs receives its issue time
// (monotonicMs() at creation).
bool verifyNonce(std::string_view nonce, uint64_t* issuedMs);

}  // namespace korva::host::detail
