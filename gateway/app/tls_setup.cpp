#include "gateway/app/tls_setup.h"

#include <fcntl.h>
#include <unistd.h>

#include <boost/asio/ip/address.hpp>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <tuple>
#include <vector>

#include "gateway/server/tls_certificate.h"
#include "gateway/server/tls_context.h"

namespace korva::gateway {

namespace {

std::string absolute(const std::string& path) {
    if (path.empty() || path.front() == '/') return path;
    char cwd[PATH_MAX];
    if (getcwd(cwd, sizeof cwd) == nullptr) return path;
    return path == "." ? std::string(cwd) : std::string(cwd) + "/" + path;
}

// The names a generated certificate is valid for: the listen address (for a wildcard address,
// this host's name and the loopback address of its family) and localhost.
std::vector<std::string> certificateNames(const ListenAddress& listen) {
    std::vector<std::string> names;
    const auto address = boost::asio::ip::make_address(listen.host);
    if (address.is_unspecified()) {
        char host[256] = "";
        if (gethostname(host, sizeof host - 1) == 0 && host[0] != '\0') names.push_back(host);
        names.push_back(address.is_v6() ? "::1" : "127.0.0.1");
    } else {
        names.push_back(address.to_string());
    }
    names.push_back("localhost");
    return names;
}

// Writes the whole file under a temporary name, then renames it over `path`. "" or the problem.
std::string writeWhole(const std::string& path, const std::string& text, mode_t mode) {
    const std::string temporary = path + ".tmp-" + std::to_string(getpid());
    const int fd =
        ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, mode);
    if (fd < 0) return std::strerror(errno);
    std::size_t done = 0;
    int error = 0;
    while (done < text.size() && error == 0) {
        const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno != EINTR) error = errno;
        if (n > 0) done += static_cast<std::size_t>(n);
    }
    if (error == 0 && ::fchmod(fd, mode) != 0) error = errno;  // whatever the umask left
    if (::close(fd) != 0 && error == 0) error = errno;
    if (error == 0 && ::rename(temporary.c_str(), path.c_str()) != 0) error = errno;
    if (error != 0) {
        ::unlink(temporary.c_str());
        return std::strerror(error);
    }
    return "";
}

TlsSetup loadFiles(const GatewayConfig& config) {
    const TlsConfig& tls = config.tls;
    auto fail = [&](const char* member, const std::string& problem) {
        return ConfigError(config.source + ": tls." + member + ": " + problem);
    };
    std::string certificate, key;
    if (const std::string problem = readSmallFile(tls.certificateFile, &certificate);
        !problem.empty()) {
        throw fail("certificateFile",
                   "cannot read certificate file " + tls.certificateFile + ": " + problem);
    }
    if (const std::string problem = readSmallFile(tls.privateKeyFile, &key); !problem.empty()) {
        throw fail("privateKeyFile",
                   "cannot read private key file " + tls.privateKeyFile + ": " + problem);
    }
    TlsContextProblem problem;
    TlsSetup setup;
    setup.context = makeServerContext(certificate, key, &problem);
    switch (problem.part) {
        case TlsContextProblem::Part::kNone:
            break;
        case TlsContextProblem::Part::kCertificate:
            throw fail("certificateFile", "certificate file " + tls.certificateFile +
                                              " cannot be used: " + problem.reason);
        case TlsContextProblem::Part::kPrivateKey:
            throw fail("privateKeyFile", "private key file " + tls.privateKeyFile +
                                             " cannot be used: " + problem.reason);
        case TlsContextProblem::Part::kPair:
            throw fail("privateKeyFile", "private key file " + tls.privateKeyFile +
                                             " does not match certificate file " +
                                             tls.certificateFile);
    }
    setup.certificateFile = tls.certificateFile;
    setup.fingerprint = certificateFingerprint(certificate);
    return setup;
}

TlsSetup generate(const GatewayConfig& config) {
    SelfSignedCertificate made;
    try {
        made = makeSelfSignedCertificate(certificateNames(*config.tls.listen));
    } catch (const std::exception& error) {
        throw ConfigError(config.source + ": tls: " + error.what());
    }
    const std::string folder = absolute(config.tls.generatedDirectory);
    const std::string certificateFile = folder + "/" + kGeneratedCertificateFile;
    const std::string keyFile = folder + "/" + kGeneratedKeyFile;
    for (const auto& [path, text, mode] :
         {std::tuple{keyFile, made.privateKeyPem, mode_t{0600}},
          std::tuple{certificateFile, made.certificatePem, mode_t{0644}}}) {
        if (const std::string problem = writeWhole(path, text, mode); !problem.empty()) {
            throw ConfigError(config.source +
                              ": tls: no certificateFile given, and the generated one cannot be "
                              "written to " +
                              path + ": " + problem);
        }
    }
    TlsContextProblem problem;
    TlsSetup setup;
    setup.context = makeServerContext(made.certificatePem, made.privateKeyPem, &problem);
    if (!setup.context) {
        throw ConfigError(config.source +
                          ": tls: the generated certificate cannot be used: " + problem.reason);
    }
    setup.certificateFile = certificateFile;
    setup.fingerprint = certificateFingerprint(made.certificatePem);
    setup.generated = true;
    return setup;
}

}  // namespace

TlsSetup prepareTls(const GatewayConfig& config) {
    return config.tls.certificateFile.empty() ? generate(config) : loadFiles(config);
}

std::string describeTls(const TlsSetup& tls) {
    return std::string("https certificate ") + tls.certificateFile +
           (tls.generated ? " (self-signed, made at start)" : "") + ", SHA-256 fingerprint " +
           tls.fingerprint;
}

}  // namespace korva::gateway
