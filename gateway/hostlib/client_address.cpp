#include "gateway/hostlib/client_address.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <cstring>

namespace korva::host {

namespace {

constexpr uint8_t kMappedPrefix[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
constexpr int kSubscriberPrefix = 64;

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    return text;
}

std::string quoted(std::string_view text) {
    std::string out(1, '"');
    out.append(text);
    out.push_back('"');
    return out;
}

int width(const IpAddress& address) {
    return address.v6 ? 128 : 32;
}

// Clears every bit after the first `prefix` bits.
IpAddress masked(IpAddress address, int prefix) {
    int bitsLeft = prefix;
    for (uint8_t& byte : address.bytes) {
        const int keep = std::clamp(bitsLeft, 0, 8);
        byte &= static_cast<uint8_t>(0xFF00u >> keep);
        bitsLeft -= 8;
    }
    return address;
}

}  // namespace

std::string IpAddress::text() const {
    char buffer[INET6_ADDRSTRLEN] = {};
    if (inet_ntop(v6 ? AF_INET6 : AF_INET, bytes.data(), buffer, sizeof buffer) == nullptr) {
        return std::string();
    }
    return buffer;
}

std::optional<IpAddress> IpAddress::parse(std::string_view text) {
    text = trimmed(text);
    const size_t zone = text.find('%');
    if (zone != std::string_view::npos) text = text.substr(0, zone);
    if (text.empty() || text.size() >= INET6_ADDRSTRLEN ||
        text.find('\0') != std::string_view::npos) {
        return std::nullopt;
    }
    char buffer[INET6_ADDRSTRLEN] = {};
    std::memcpy(buffer, text.data(), text.size());
    IpAddress address;
    if (inet_pton(AF_INET, buffer, address.bytes.data()) == 1) return address;
    if (inet_pton(AF_INET6, buffer, address.bytes.data()) != 1) return std::nullopt;
    address.v6 = true;
    if (std::equal(std::begin(kMappedPrefix), std::end(kMappedPrefix), address.bytes.begin())) {
        IpAddress v4;
        std::copy_n(address.bytes.begin() + 12, 4, v4.bytes.begin());
        return v4;
    }
    return address;
}

bool AddressRange::contains(const IpAddress& address) const {
    return address.v6 == network.v6 && masked(address, prefixLength).bytes == network.bytes;
}

std::optional<AddressRange> AddressRange::parse(std::string_view text, std::string* problem) {
    const size_t slash = text.find('/');
    const auto address = IpAddress::parse(text.substr(0, slash));
    if (!address) {
        if (problem) *problem = quoted(text) + " is not an IP address or network";
        return std::nullopt;
    }
    AddressRange range{*address, width(*address)};
    if (slash != std::string_view::npos) {
        const std::string_view digits = text.substr(slash + 1);
        int prefix = -1;
        const auto [end, ec] =
            std::from_chars(digits.data(), digits.data() + digits.size(), prefix);
        if (digits.empty() || ec != std::errc() || end != digits.data() + digits.size() ||
            prefix < 0 || prefix > width(*address)) {
            if (problem) {
                *problem = quoted(text) + " has no valid prefix length (0.." +
                           std::to_string(width(*address)) + ")";
            }
            return std::nullopt;
        }
        range.prefixLength = prefix;
    }
    range.network = masked(*address, range.prefixLength);
    return range;
}

std::string loginAddress(std::string_view peer, std::string_view forwarded,
                         const std::vector<AddressRange>& trustedProxies) {
    auto client = IpAddress::parse(peer);
    if (!client) return std::string();
    const bool trusted = std::any_of(trustedProxies.begin(), trustedProxies.end(),
                                     [&](const AddressRange& r) { return r.contains(*client); });
    if (trusted) {
        if (auto original = IpAddress::parse(forwarded)) client = original;
    }
    if (!client->v6) return client->text();
    return masked(*client, kSubscriberPrefix).text() + "/64";
}

}  // namespace korva::host
