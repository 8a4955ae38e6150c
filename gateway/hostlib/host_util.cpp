// Host helpers: verifiable digest nonces and ISO 8601 time.
#include "host/host_util.h"

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/params.h>
#include <openssl/rand.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>

#include "gateway/hostlib/host_context.h"
#include "gateway/hostlib/host_nonce.h"
#include "gateway/hostlib/runtime_clock.h"

namespace korva::host::detail {

namespace {

constexpr size_t kStampBytes = 8;
constexpr size_t kRandomBytes = 8;
constexpr size_t kMacBytes = 16;
constexpr size_t kRawBytes = kStampBytes + kRandomBytes + kMacBytes;  // 32 -> 43 characters
constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

}  // namespace

// HMAC-SHA256 keyed with a per-process random secret. The MAC and digest are fetched and the key
// set once; every use duplicates the keyed context (HMAC() would look both up by name each time).
class NonceKey {
  public:
    NonceKey() {
        unsigned char key[32];
        if (RAND_bytes(key, sizeof key) != 1) return;
        m_mac = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
        if (m_mac == nullptr) return;
        m_keyed = EVP_MAC_CTX_new(m_mac);
        char digestName[] = "SHA256";
        const OSSL_PARAM params[] = {
            OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digestName, 0),
            OSSL_PARAM_construct_end()};
        if (m_keyed == nullptr || EVP_MAC_init(m_keyed, key, sizeof key, params) != 1) {
            EVP_MAC_CTX_free(m_keyed);
            m_keyed = nullptr;
        }
        OPENSSL_cleanse(key, sizeof key);
    }
    NonceKey(const NonceKey&) = delete;
    NonceKey& operator=(const NonceKey&) = delete;
    ~NonceKey() {
        EVP_MAC_CTX_free(m_keyed);
        EVP_MAC_free(m_mac);
    }

    bool compute(const unsigned char* data, size_t length, unsigned char out[kMacBytes]) const {
        if (m_keyed == nullptr) return false;
        // Each thread keeps its own copy of the keyed context and restarts it with the same key.
        struct Local {
            EVP_MAC_CTX* ctx = nullptr;
            ~Local() { EVP_MAC_CTX_free(ctx); }
        };
        thread_local Local local;
        if (local.ctx == nullptr) {
            local.ctx = EVP_MAC_CTX_dup(m_keyed);
            if (local.ctx == nullptr) return false;
        } else if (EVP_MAC_init(local.ctx, nullptr, 0, nullptr) != 1) {
            return false;
        }
        unsigned char full[EVP_MAX_MD_SIZE];
        size_t fullLength = 0;
        const bool ok = EVP_MAC_update(local.ctx, data, length) == 1 &&
                        EVP_MAC_final(local.ctx, full, &fullLength, sizeof full) == 1 &&
                        fullLength >= kMacBytes;
        if (ok) std::memcpy(out, full, kMacBytes);
        return ok;
    }

  private:
    EVP_MAC* m_mac = nullptr;
    EVP_MAC_CTX* m_keyed = nullptr;
};

template struct PartDeleter<NonceKey>;
template Owned<NonceKey> makePart<NonceKey>();

namespace {

bool mac(const unsigned char* data, size_t length, unsigned char out[kMacBytes]) {
    return context().nonceKey().compute(data, length, out);
}

std::string encode(const unsigned char* bytes, size_t length) {
    std::string text;
    text.reserve((length * 4 + 2) / 3);
    uint32_t buffer = 0;
    int bits = 0;
    for (size_t i = 0; i < length; ++i) {
        buffer = (buffer << 8) | bytes[i];
        bits += 8;
        while (bits >= 6) {
            bits -= 6;
            text += kAlphabet[(buffer >> bits) & 0x3F];
        }
    }
    if (bits > 0) text += kAlphabet[(buffer << (6 - bits)) & 0x3F];
    return text;
}

int decodeChar(char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '-') return 62;
    if (c == '_') return 63;
    return -1;
}

}  // namespace

std::string createNonce() {
    unsigned char raw[kRawBytes];
    const uint64_t now = monotonicMs();
    for (size_t i = 0; i < kStampBytes; ++i) {
        raw[i] = static_cast<unsigned char>(now >> (8 * (kStampBytes - 1 - i)));
    }
    if (RAND_bytes(raw + kStampBytes, kRandomBytes) != 1) return std::string();
    if (!mac(raw, kStampBytes + kRandomBytes, raw + kStampBytes + kRandomBytes)) {
        return std::string();
    }
    return encode(raw, sizeof raw);
}

bool verifyNonce(std::string_view nonce, uint64_t* issuedMs) {
    if (nonce.size() != kNonceLength) return false;
    unsigned char raw[kRawBytes];
    size_t n = 0;
    uint32_t buffer = 0;
    int bits = 0;
    for (char c : nonce) {
        const int value = decodeChar(c);
        if (value < 0) return false;
        buffer = (buffer << 6) | static_cast<uint32_t>(value);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            raw[n++] = static_cast<unsigned char>(buffer >> bits);
        }
    }
    // 43 characters carry 258 bits: the last two must be zero in a nonce we wrote.
    if (n != kRawBytes || (buffer & ((1u << bits) - 1)) != 0) return false;
    unsigned char expected[kMacBytes];
    if (!mac(raw, kStampBytes + kRandomBytes, expected)) return false;
    if (CRYPTO_memcmp(expected, raw + kStampBytes + kRandomBytes, kMacBytes) != 0) return false;
    uint64_t stamp = 0;
    for (size_t i = 0; i < kStampBytes; ++i) stamp = (stamp << 8) | raw[i];
    if (issuedMs != nullptr) *issuedMs = stamp;
    return true;
}

}  // namespace korva::host::detail

int CreateNonce(char* buffer, int size) {
    if (buffer == nullptr || size <= static_cast<int>(korva::host::detail::kNonceLength)) {
        return -1;
    }
    const std::string nonce = korva::host::detail::createNonce();
    if (nonce.empty()) {
        buffer[0] = '\0';
        return -1;
    }
    std::memcpy(buffer, nonce.c_str(), nonce.size() + 1);
    return 0;
}

std::string GetCurTime8601(int utc) {
    const std::time_t now = std::time(nullptr);
    std::tm tm{};
    long offset = 0;
    if (utc != 0) {
        gmtime_r(&now, &tm);
    } else {
        localtime_r(&now, &tm);
        offset = tm.tm_gmtoff;
    }
    const long absOffset = offset < 0 ? -offset : offset;
    char text[96];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d%c%02d:%02d", tm.tm_year + 1900,
                  tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec,
                  offset < 0 ? '-' : '+', static_cast<int>(absOffset / 3600 % 100),
                  static_cast<int>(absOffset % 3600 / 60));
    return text;
}
