// Digest Authorization header parsing.
#include "gateway/hostlib/digest_header.h"

#include <cstdint>

#include "gateway/hostlib/hex_digit.h"

namespace korva::host::digest {

namespace {

bool isTchar(char c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
    switch (c) {
        case '!':
        case '#':
        case '$':
        case '%':
        case '&':
        case '\'':
        case '*':
        case '+':
        case '-':
        case '.':
        case '^':
        case '_':
        case '`':
        case '|':
        case '~':
            return true;
        default:
            return false;
    }
}

bool isOws(char c) {
    return c == ' ' || c == '\t';
}

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool equalsNoCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (lower(a[i]) != lower(b[i])) return false;
    }
    return true;
}

// Characters allowed in a quoted string (qdtext and the escaped half of a quoted-pair).
bool isQuotedChar(unsigned char c) {
    return c == '\t' || (c >= 0x20 && c != 0x7F);
}

int hexValue(char c) {
    return korva::host::hexDigitValue(c);
}

}  // namespace

std::optional<std::vector<std::pair<std::string, std::string>>> parseAuthParams(
    std::string_view header) {
    if (header.size() > kMaxAuthorizationLength) return std::nullopt;
    size_t i = 0;
    const size_t n = header.size();
    while (i < n && isOws(header[i])) ++i;
    const size_t schemeStart = i;
    while (i < n && isTchar(header[i])) ++i;
    if (!equalsNoCase(header.substr(schemeStart, i - schemeStart), "Digest")) return std::nullopt;
    if (i >= n || !isOws(header[i])) return std::nullopt;

    std::vector<std::pair<std::string, std::string>> params;
    for (;;) {
        while (i < n && (isOws(header[i]) || header[i] == ',')) ++i;
        if (i >= n) break;
        const size_t nameStart = i;
        while (i < n && isTchar(header[i])) ++i;
        if (i == nameStart) return std::nullopt;
        std::string name;
        for (size_t k = nameStart; k < i; ++k) name += lower(header[k]);
        while (i < n && isOws(header[i])) ++i;
        if (i >= n || header[i] != '=') return std::nullopt;
        ++i;
        while (i < n && isOws(header[i])) ++i;
        std::string value;
        if (i < n && header[i] == '"') {
            ++i;
            bool closed = false;
            while (i < n) {
                const char c = header[i++];
                if (c == '"') {
                    closed = true;
                    break;
                }
                if (c == '\\') {
                    if (i >= n) return std::nullopt;
                    const char escaped = header[i++];
                    if (!isQuotedChar(static_cast<unsigned char>(escaped))) return std::nullopt;
                    value += escaped;
                } else {
                    if (!isQuotedChar(static_cast<unsigned char>(c))) return std::nullopt;
                    value += c;
                }
            }
            if (!closed) return std::nullopt;
        } else {
            const size_t valueStart = i;
            while (i < n && isTchar(header[i])) ++i;
            if (i == valueStart) return std::nullopt;
            value.assign(header.substr(valueStart, i - valueStart));
        }
        while (i < n && isOws(header[i])) ++i;
        if (i < n && header[i] != ',') return std::nullopt;
        for (const auto& existing : params) {
            if (existing.first == name) return std::nullopt;
        }
        if (params.size() >= kMaxParams) return std::nullopt;
        params.emplace_back(std::move(name), std::move(value));
    }
    if (params.empty()) return std::nullopt;
    return params;
}

std::optional<DigestCredentials> parseCredentials(std::string_view header) {
    auto params = parseAuthParams(header);
    if (!params) return std::nullopt;
    DigestCredentials out;
    bool have[8] = {};
    std::string algorithm = "MD5";
    for (auto& [name, value] : *params) {
        if (name == "username") {
            out.username = std::move(value);
            have[0] = true;
        } else if (name == "realm") {
            out.realm = std::move(value);
            have[1] = true;
        } else if (name == "nonce") {
            out.nonce = std::move(value);
            have[2] = true;
        } else if (name == "uri") {
            out.uri = std::move(value);
            have[3] = true;
        } else if (name == "response") {
            out.response = std::move(value);
            have[4] = true;
        } else if (name == "qop") {
            out.qop = std::move(value);
            have[5] = true;
        } else if (name == "nc") {
            out.nc = std::move(value);
            have[6] = true;
        } else if (name == "cnonce") {
            out.cnonce = std::move(value);
            have[7] = true;
        } else if (name == "algorithm") {
            algorithm = std::move(value);
        } else if (name == "userhash") {
            if (!equalsNoCase(value, "false")) return std::nullopt;  // hashed names: unsupported
        } else if (name == "username*") {
            return std::nullopt;  // RFC 8187 encoded names: unsupported
        }
        // Other parameters (opaque, extensions) are ignored.
    }
    for (bool present : have) {
        if (!present) return std::nullopt;
    }
    if (out.username.empty() || out.nonce.empty() || out.cnonce.empty()) return std::nullopt;
    if (!equalsNoCase(out.qop, "auth")) return std::nullopt;
    out.qop = "auth";
    if (equalsNoCase(algorithm, "MD5")) {
        out.algorithm = Algorithm::kMd5;
    } else if (equalsNoCase(algorithm, "SHA-256")) {
        out.algorithm = Algorithm::kSha256;
    } else {
        return std::nullopt;
    }
    if (out.nc.size() != 8) return std::nullopt;
    uint32_t nc = 0;
    for (char c : out.nc) {
        const int v = hexValue(c);
        if (v < 0) return std::nullopt;
        nc = nc << 4 | static_cast<uint32_t>(v);
    }
    if (nc == 0) return std::nullopt;
    out.ncValue = nc;
    const size_t hexLength = out.algorithm == Algorithm::kSha256 ? 64 : 32;
    if (out.response.size() != hexLength) return std::nullopt;
    for (char& c : out.response) {
        if (hexValue(c) < 0) return std::nullopt;
        c = lower(c);
    }
    return out;
}

}  // namespace korva::host::digest
