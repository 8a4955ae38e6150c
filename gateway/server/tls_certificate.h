// Self-signed server certificates for the HTTPS listener, and certificate fingerprints.
// Pure functions on OpenSSL; thread-safe.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace korva::gateway {

struct SelfSignedCertificate {
    std::string certificatePem;
    std::string privateKeyPem;  // PKCS#8, unencrypted
};

// How long a generated certificate is valid (from an hour before it was made, for clocks that
// lag behind).
constexpr int kSelfSignedDays = 365;

// A new ECDSA P-256 key and a certificate for it, signed by itself with SHA-256: subject
// "CN=korva-gateway", a random 128-bit serial, subjectAltName with every name of `names` (IP
// addresses as IP entries, anything else as DNS names), CA:FALSE, usable for TLS servers only.
// Throws std::runtime_error when the TLS library fails.
SelfSignedCertificate makeSelfSignedCertificate(const std::vector<std::string>& names);

// The SHA-256 fingerprint of the first certificate of a PEM text, over its DER bytes, as
// upper-case hex pairs joined by ':'; "" when the text holds no certificate.
std::string certificateFingerprint(std::string_view certificatePem);

}  // namespace korva::gateway
