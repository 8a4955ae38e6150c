#include "gateway/server/tls_context.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <boost/asio/buffer.hpp>

namespace korva::gateway {

namespace ssl = boost::asio::ssl;

namespace {

// TLS 1.2: forward secrecy and authenticated encryption only. TLS 1.3 suites are all AEAD and
// keep the library's defaults.
constexpr const char* kTls12Ciphers =
    "ECDHE-ECDSA-AES128-GCM-SHA256:ECDHE-RSA-AES128-GCM-SHA256:"
    "ECDHE-ECDSA-AES256-GCM-SHA384:ECDHE-RSA-AES256-GCM-SHA384:"
    "ECDHE-ECDSA-CHACHA20-POLY1305:ECDHE-RSA-CHACHA20-POLY1305";
constexpr unsigned char kSessionIdContext[] = "korva-gateway";

std::string reasonOf(const boost::system::error_code& ec) {
    std::string reason = ec.message();
    // The error queue may hold more detail than the code's message.
    if (const unsigned long error = ERR_peek_last_error(); error != 0) {
        char text[256];
        ERR_error_string_n(error, text, sizeof text);
        if (reason.empty() || reason == "unspecified system_category error") reason = text;
    }
    ERR_clear_error();
    return reason;
}

bool configure(SSL_CTX* native) {
    return SSL_CTX_set_min_proto_version(native, TLS1_2_VERSION) == 1 &&
           SSL_CTX_set_max_proto_version(native, TLS1_3_VERSION) == 1 &&
           SSL_CTX_set_cipher_list(native, kTls12Ciphers) == 1 &&
           SSL_CTX_set_session_id_context(native, kSessionIdContext,
                                          sizeof kSessionIdContext - 1) == 1;
}

}  // namespace

std::shared_ptr<ssl::context> makeServerContext(std::string_view certificatePem,
                                                std::string_view privateKeyPem,
                                                TlsContextProblem* problem) {
    auto context = std::make_shared<ssl::context>(ssl::context::tls_server);
    SSL_CTX* native = context->native_handle();
    context->set_options(ssl::context::default_workarounds | ssl::context::no_compression |
                         ssl::context::single_dh_use);
    SSL_CTX_set_options(native, SSL_OP_NO_RENEGOTIATION);
    // Idle connections do not keep their read and write buffers.
    SSL_CTX_set_mode(native, SSL_MODE_RELEASE_BUFFERS);
    SSL_CTX_set_session_cache_mode(native, SSL_SESS_CACHE_SERVER);
    SSL_CTX_sess_set_cache_size(native, kTlsSessionCacheSize);
    SSL_CTX_set_timeout(native, kTlsSessionSeconds);
    if (!configure(native)) {
        problem->part = TlsContextProblem::Part::kCertificate;
        problem->reason = "the TLS library refused the protocol settings";
        ERR_clear_error();
        return nullptr;
    }

    boost::system::error_code ec;
    context->use_certificate_chain(
        boost::asio::buffer(certificatePem.data(), certificatePem.size()), ec);
    if (ec) {
        *problem = {TlsContextProblem::Part::kCertificate, reasonOf(ec)};
        return nullptr;
    }
    context->use_private_key(boost::asio::buffer(privateKeyPem.data(), privateKeyPem.size()),
                             ssl::context::pem, ec);
    if (ec) {
        *problem = {TlsContextProblem::Part::kPrivateKey, reasonOf(ec)};
        return nullptr;
    }
    if (SSL_CTX_check_private_key(native) != 1) {
        ERR_clear_error();
        *problem = {TlsContextProblem::Part::kPair,
                    "the private key does not match the certificate"};
        return nullptr;
    }
    return context;
}

}  // namespace korva::gateway
