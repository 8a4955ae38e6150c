// HostFixture: a clean host for one test, and valid digest credentials for its account.
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <cstdio>
#include <stdexcept>

#include "gateway/hostlib/host_alarms.h"
#include "gateway/hostlib/host_auth.h"
#include "gateway/hostlib/host_clock.h"
#include "gateway/hostlib/host_config.h"
#include "gateway/hostlib/host_devices.h"
#include "gateway/testing/harness.h"
#include "host/host_util.h"

namespace korva::testing {
namespace {

std::string hex(const unsigned char* bytes, size_t length) {
    static const char kDigits[] = "0123456789abcdef";
    std::string out;
    out.reserve(length * 2);
    for (size_t i = 0; i < length; ++i) {
        out += kDigits[bytes[i] >> 4];
        out += kDigits[bytes[i] & 0x0F];
    }
    return out;
}

std::string md5Hex(const std::string& text) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(text.data(), text.size(), digest, &length, EVP_md5(), nullptr) != 1) {
        throw std::runtime_error("MD5 digest failed");
    }
    return hex(digest, length);
}

std::string randomCnonce() {
    unsigned char bytes[8];
    if (RAND_bytes(bytes, sizeof bytes) != 1) throw std::runtime_error("no random bytes");
    return hex(bytes, sizeof bytes);
}

std::string methodName(unsigned char method) {
    switch (method) {
        case QXHttpService::kMethodGet:
            return "GET";
        case QXHttpService::kMethodPut:
            return "PUT";
        case QXHttpService::kMethodPost:
            return "POST";
        case QXHttpService::kMethodDelete:
            return "DELETE";
        default:
            return "PATCH";
    }
}

}  // namespace

HostFixture::HostFixture() : m_device(std::make_shared<ScriptedDevice>()) {
    korva::host::setUserConfig(true, kRealm);
    korva::host::setNetworkConfig(QXConfigMgr::NetworkPorts{});
    korva::host::setAccounts({korva::host::Account{kUser, kPassword, kDevice}},
                             korva::host::AuthSettings{});
    korva::host::attachDevice(kDevice, m_device);
    korva::host::allowDigestChecksWithoutRequest(true);  // the plug-in is called without sockets
}

HostFixture::~HostFixture() {
    korva::host::allowDigestChecksWithoutRequest(false);
    korva::host::clearDevices();
    korva::host::resetAlarmBus();
    korva::host::useRealClock();
}

std::string HostFixture::authorization(const std::string& method, const std::string& uri,
                                       const std::string& user, const std::string& password,
                                       const std::string& realm) {
    char nonceBuffer[256] = {};
    if (CreateNonce(nonceBuffer, sizeof nonceBuffer) != 0) {
        throw std::runtime_error("the host gave no nonce");
    }
    const std::string nonce = nonceBuffer;
    const std::string nc = "00000001";
    const std::string cnonce = randomCnonce();
    const std::string ha1 = md5Hex(user + ":" + realm + ":" + password);
    const std::string ha2 = md5Hex(method + ":" + uri);
    const std::string response =
        md5Hex(ha1 + ":" + nonce + ":" + nc + ":" + cnonce + ":auth:" + ha2);
    return "Digest username=\"" + user + "\", realm=\"" + realm + "\", nonce=\"" + nonce +
           "\", uri=\"" + uri + "\", algorithm=MD5, response=\"" + response +
           "\", qop=auth, nc=" + nc + ", cnonce=\"" + cnonce + "\"";
}

TestRequest HostFixture::authorizedRequest(unsigned char method, const std::string& url,
                                           const std::string& body) {
    return TestRequest(method, url, body,
                       {{"Authorization", authorization(methodName(method), url)}});
}

}  // namespace korva::testing
