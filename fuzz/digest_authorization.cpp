// The Authorization header of the host's digest check: the input is the header value. It goes
// through the auth-param parser, the credentials parser and the whole check
// (QX_KORVAMgrBus_CheckDigest, account "admin" bound to "dev-1"). So that the fuzzer gets past
// the nonce and the response, "@NONCE@" in the input becomes a fresh host nonce, and
// "@RESPONSE@" becomes the right response for the credentials around it.
// Invariants: the parsers keep their limits; the check answers 0, 1 or 1028, names the bound
// device exactly when it authenticates, and never authenticates a wrong response.
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "fuzz/fuzz_support.h"
#include "gateway/hostlib/digest_header.h"
#include "gateway/testing/harness.h"
#include "host/digest_check.h"
#include "host/host_util.h"

namespace {

namespace digest = korva::host::digest;
using korva::testing::HostFixture;

korva::testing::HostFixture* g_host = nullptr;  // lives for the whole run

void replaceAll(std::string* text, const std::string& from, const std::string& to) {
    for (size_t at = text->find(from); at != std::string::npos;
         at = text->find(from, at + to.size()))
        text->replace(at, from.size(), to);
}

// The right response for the credentials of header, with "@RESPONSE@" standing for it.
std::string rightResponse(const std::string& header) {
    std::string probe = header;
    replaceAll(&probe, "@RESPONSE@", std::string(64, '0'));
    auto credentials = digest::parseCredentials(probe);
    if (!credentials) {
        probe = header;
        replaceAll(&probe, "@RESPONSE@", std::string(32, '0'));
        credentials = digest::parseCredentials(probe);
    }
    if (!credentials) return "@RESPONSE@";
    const auto& c = *credentials;
    return digest::response(c.algorithm,
                            digest::ha1(c.algorithm, c.username, c.realm, HostFixture::kPassword),
                            c.nonce, c.nc, c.cnonce, c.qop, digest::ha2(c.algorithm, "GET", c.uri));
}

void checkParsers(const std::string& header) {
    const auto params = digest::parseAuthParams(header);
    if (params) {
        korva::fuzz::require(params->size() <= digest::kMaxParams, "too many auth-params", header);
        for (const auto& [name, value] : *params) {
            for (const char c : name) {
                korva::fuzz::require(!std::isupper(static_cast<unsigned char>(c)),
                                     "auth-param name not lower-case", name);
            }
        }
    }
    const auto credentials = digest::parseCredentials(header);
    if (!credentials) return;
    korva::fuzz::require(params.has_value(), "credentials from a header that does not parse",
                         header);
    korva::fuzz::require(
        credentials->ncValue != 0 && credentials->nc.size() == 8 && credentials->qop == "auth",
        "credentials outside their rules", header);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    korva::fuzz::quietHostLog();
    g_host = new HostFixture;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string header(reinterpret_cast<const char*>(data), size);
    if (header.find("@NONCE@") != std::string::npos) {
        char nonce[256] = {};
        korva::fuzz::require(CreateNonce(nonce, sizeof nonce) == 0, "the host gave no nonce");
        replaceAll(&header, "@NONCE@", nonce);
    }
    const bool answered = header.find("@RESPONSE@") != std::string::npos;
    if (answered) replaceAll(&header, "@RESPONSE@", rightResponse(header));
    checkParsers(header);

    DigestCheckRequest request{};
    const size_t length = std::min(header.size(), sizeof request.authorization - 1);
    std::memcpy(request.authorization, header.data(), length);
    DigestCheckResult result{};
    const int check = QX_KORVAMgrBus_CheckDigest(&result, "GET", &request);
    korva::fuzz::require(
        check == kDigestAuthenticated || check == kDigestChallengeDue || check == kDigestRejected,
        "unknown result of the digest check", std::to_string(check));
    const std::string device(result.devIndex, strnlen(result.devIndex, sizeof result.devIndex));
    korva::fuzz::require((check == kDigestAuthenticated) == (device == HostFixture::kDevice),
                         "bound device and result disagree", device);
    korva::fuzz::require(check != kDigestAuthenticated || answered,
                         "authenticated without the right response", header);
    return 0;
}
