// Client addresses for the digest check's lock-out: IP addresses, trusted proxy ranges, and the
// address a login attempt is counted against. Plain values; thread-safe.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace korva::host {

struct IpAddress {
    bool v6 = false;
    std::array<uint8_t, 16> bytes{};  // IPv4 in the first 4

    // "192.0.2.1", or the canonical IPv6 text ("2001:db8::1").
    std::string text() const;

    // IPv4 or IPv6 text (an IPv6 zone "%eth0" is ignored); an IPv4-mapped IPv6 address
    // (::ffff:192.0.2.1) becomes the IPv4 address. nullopt when the text is not an address.
    static std::optional<IpAddress> parse(std::string_view text);
};

// An address or a CIDR network ("10.0.0.0/8", "2001:db8::/32").
struct AddressRange {
    IpAddress network;  // host bits cleared
    int prefixLength = 0;

    bool contains(const IpAddress& address) const;

    // nullopt with *problem set when the text is neither an address nor a valid network.
    static std::optional<AddressRange> parse(std::string_view text, std::string* problem);
};

// The address a login attempt from `peer` is counted against. The peer is the connection's
// peer address; when it lies in a trusted proxy range and `forwarded` (the first
// X-Forwarded-For entry) is an IP address, the forwarded address is taken instead, otherwise
// the header is ignored. IPv6 clients are counted by their /64 network (one subscriber's share).
// "" when the peer is unknown.
std::string loginAddress(std::string_view peer, std::string_view forwarded,
                         const std::vector<AddressRange>& trustedProxies);

}  // namespace korva::host
