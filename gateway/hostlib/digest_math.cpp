// Digest arithmetic on OpenSSL's EVP interface.
#include "gateway/hostlib/digest_math.h"

#include <openssl/crypto.h>

#include <string>

namespace korva::host::digest {

namespace {

const EVP_MD* fetch(const char* name) {
#if OPENSSL_VERSION_NUMBER >= 0x30000000L
    return EVP_MD_fetch(nullptr, name, nullptr);  // kept for the life of the process
#else
    return EVP_get_digestbyname(name);
#endif
}

std::string toHex(const unsigned char* bytes, unsigned int length) {
    static const char kHex[] = "0123456789abcdef";
    std::string text(static_cast<size_t>(length) * 2, '0');
    for (unsigned int i = 0; i < length; ++i) {
        text[2 * i] = kHex[bytes[i] >> 4];
        text[2 * i + 1] = kHex[bytes[i] & 0x0F];
    }
    return text;
}

}  // namespace

const char* algorithmName(Algorithm algorithm) {
    return algorithm == Algorithm::kSha256 ? "SHA-256" : "MD5";
}

const EVP_MD* messageDigest(Algorithm algorithm) {
    static const EVP_MD* const md5 = fetch("MD5");
    static const EVP_MD* const sha256 = fetch("SHA256");
    return algorithm == Algorithm::kSha256 ? sha256 : md5;
}

std::string hashHex(Algorithm algorithm, std::string_view data) {
    const EVP_MD* md = messageDigest(algorithm);
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (md == nullptr || EVP_Digest(data.data(), data.size(), out, &length, md, nullptr) != 1) {
        return std::string();
    }
    return toHex(out, length);
}

namespace {
std::string joined(std::initializer_list<std::string_view> parts) {
    std::string text;
    size_t size = 0;
    for (std::string_view part : parts) size += part.size() + 1;
    text.reserve(size);
    bool first = true;
    for (std::string_view part : parts) {
        if (!first) text += ':';
        text.append(part.data(), part.size());
        first = false;
    }
    return text;
}
}  // namespace

std::string ha1(Algorithm algorithm, std::string_view username, std::string_view realm,
                std::string_view password) {
    return hashHex(algorithm, joined({username, realm, password}));
}

std::string ha2(Algorithm algorithm, std::string_view method, std::string_view uri) {
    return hashHex(algorithm, joined({method, uri}));
}

std::string response(Algorithm algorithm, std::string_view ha1Hex, std::string_view nonce,
                     std::string_view nc, std::string_view cnonce, std::string_view qop,
                     std::string_view ha2Hex) {
    return hashHex(algorithm, joined({ha1Hex, nonce, nc, cnonce, qop, ha2Hex}));
}

bool constantTimeEquals(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    if (a.empty()) return true;
    return CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace korva::host::digest
