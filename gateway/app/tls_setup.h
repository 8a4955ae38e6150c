// The TLS context of the HTTPS listener, from the configured certificate and key files or from
// a self-signed certificate made at start.
//
// A generated certificate and its key are written to tls.generatedDirectory as
// korva-gateway-tls.crt and korva-gateway-tls.key (the key readable by its owner only), replacing
// the files of an earlier start; each file appears whole (written aside, then renamed).
#pragma once

#include <boost/asio/ssl/context.hpp>
#include <memory>
#include <string>

#include "gateway/app/gateway_config.h"

namespace korva::gateway {

constexpr const char* kGeneratedCertificateFile = "korva-gateway-tls.crt";
constexpr const char* kGeneratedKeyFile = "korva-gateway-tls.key";

struct TlsSetup {
    std::shared_ptr<boost::asio::ssl::context> context;
    std::string certificateFile;
    std::string fingerprint;  // SHA-256, "AB:CD:..."
    bool generated = false;
};

// For a configuration with tls.listen set. Loads the configured files, or makes and writes a
// self-signed certificate for the listen address and localhost. Throws ConfigError naming the
// file and the problem (a missing or unreadable file, a refused certificate or key, a key that
// does not match, a folder the generated files cannot be written to).
TlsSetup prepareTls(const GatewayConfig& config);

// The line printed after the listening line.
std::string describeTls(const TlsSetup& tls);

}  // namespace korva::gateway
