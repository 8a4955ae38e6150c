// The TLS server context of the HTTPS listener: TLS 1.2 and 1.3 only; for TLS 1.2 only ECDHE
// key exchange with AEAD ciphers (AES-GCM, ChaCha20-Poly1305); no renegotiation, no
// compression; session resumption through a bounded server-side session cache and session
// tickets (keys made at start, never written anywhere).
// Thread safety: the context is built once, then only read by the connections' TLS streams.
#pragma once

#include <boost/asio/ssl/context.hpp>
#include <memory>
#include <string>
#include <string_view>

namespace korva::gateway {

struct TlsContextProblem {
    enum class Part { kNone, kCertificate, kPrivateKey, kPair };
    Part part = Part::kNone;
    std::string reason;  // as the TLS library puts it
};

// Sessions kept for resumption, and how long one stays valid.
constexpr long kTlsSessionCacheSize = 10000;
constexpr long kTlsSessionSeconds = 3600;

// Builds the context from a PEM certificate chain and a PEM private key. Null with `problem`
// naming the part refused (a key that does not belong to the certificate: kPair).
std::shared_ptr<boost::asio::ssl::context> makeServerContext(std::string_view certificatePem,
                                                             std::string_view privateKeyPem,
                                                             TlsContextProblem* problem);

}  // namespace korva::gateway
