#include "gateway/server/admin_access.h"

#include <boost/asio/ip/address.hpp>
#include <boost/beast/http/field.hpp>

#include "gateway/hostlib/ascii_case.h"

namespace korva::gateway {

namespace http = boost::beast::http;

namespace {

std::string_view trim(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    return text;
}

std::optional<boost::asio::ip::address> ipAddress(const std::string& text) {
    boost::system::error_code ec;
    const auto address = boost::asio::ip::make_address(text, ec);
    if (ec) return std::nullopt;
    return address;
}

// Splits a Host value into name (IPv6 without brackets) and port (80 when absent); false when
// malformed.
bool splitHost(std::string_view value, std::string* name, unsigned* port) {
    std::string_view portText;
    if (!value.empty() && value.front() == '[') {
        const auto close = value.find(']');
        if (close == std::string_view::npos) return false;
        *name = std::string(value.substr(1, close - 1));
        const std::string_view rest = value.substr(close + 1);
        if (!rest.empty() && rest.front() != ':') return false;
        if (!rest.empty()) portText = rest.substr(1);
    } else {
        const auto colon = value.rfind(':');
        *name = std::string(value.substr(0, colon));
        if (colon != std::string_view::npos) portText = value.substr(colon + 1);
    }
    *port = 80;
    if (portText.empty()) return !name->empty();
    if (portText.size() > 5) return false;
    unsigned number = 0;
    for (char c : portText) {
        if (c < '0' || c > '9') return false;
        number = number * 10 + static_cast<unsigned>(c - '0');
    }
    *port = number;
    return !name->empty();
}

// Compares in time that depends only on the length of `expected`, not on where they differ.
bool constantTimeEqual(std::string_view given, std::string_view expected) {
    unsigned char difference = given.size() == expected.size() ? 0 : 1;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const char g = i < given.size() ? given[i] : 0;
        difference |= static_cast<unsigned char>(g ^ expected[i]);
    }
    return difference == 0;
}

std::string_view view(boost::beast::string_view text) {
    return {text.data(), text.size()};
}

}  // namespace

AdminAccess::AdminAccess(const std::string& host, unsigned short port, std::string token)
    : m_host(host), m_port(port), m_token(std::move(token)) {
    const auto address = ipAddress(m_host);
    m_anyAddress = address && address->is_unspecified();
}

bool AdminAccess::isLoopback(const std::string& host) {
    if (equalsIgnoreCase(host, "localhost")) return true;
    const auto address = ipAddress(host);
    if (!address) return false;
    if (address->is_v6() && address->to_v6().is_v4_mapped()) {
        return boost::asio::ip::make_address_v4(boost::asio::ip::v4_mapped, address->to_v6())
            .is_loopback();
    }
    return address->is_loopback();
}

// A name a browser can be made to resolve to this machine (DNS rebinding) is refused: only
// "localhost" and IP literals pass, and an IP literal must be loopback or the bound address
// (any address when the listener is bound to all of them).
bool AdminAccess::hostAllowed(std::string_view hostHeader) const {
    std::string name;
    unsigned port = 0;
    if (!splitHost(trim(hostHeader), &name, &port) || port != m_port) return false;
    if (equalsIgnoreCase(name, "localhost")) return true;
    const auto address = ipAddress(name);
    if (!address) return false;
    return isLoopback(name) || m_anyAddress || address == ipAddress(m_host);
}

bool AdminAccess::tokenMatches(std::string_view authorization) const {
    authorization = trim(authorization);
    static constexpr std::string_view kScheme = "bearer ";
    if (authorization.size() < kScheme.size() ||
        !equalsIgnoreCase(authorization.substr(0, kScheme.size()), kScheme)) {
        return false;
    }
    return constantTimeEqual(trim(authorization.substr(kScheme.size())), m_token);
}

std::optional<AdminRefusal> AdminAccess::check(const http::request<http::string_body>& request,
                                               bool tokenRequired) const {
    const auto host = request.find(http::field::host);
    if (host == request.end()) {
        if (request.version() >= 11) return AdminRefusal{400, "missing Host header", false};
    } else if (!hostAllowed(view(host->value()))) {
        return AdminRefusal{421, "Host does not name this admin listener", false};
    }
    if (const auto origin = request.find(http::field::origin); origin != request.end()) {
        const bool same = host != request.end() &&
                          equalsIgnoreCase(trim(view(origin->value())),
                                           "http://" + std::string(trim(view(host->value()))));
        if (!same) return AdminRefusal{403, "cross-origin requests are refused", false};
    }
    if (const auto site = request.find("Sec-Fetch-Site"); site != request.end()) {
        const std::string_view value = trim(view(site->value()));
        if (!equalsIgnoreCase(value, "same-origin") && !equalsIgnoreCase(value, "none")) {
            return AdminRefusal{403, "cross-site requests are refused", false};
        }
    }
    if (tokenRequired && !m_token.empty() &&
        !tokenMatches(view(request[http::field::authorization]))) {
        return AdminRefusal{401, "a valid admin token is required (Authorization: Bearer)", true};
    }
    return std::nullopt;
}

}  // namespace korva::gateway
