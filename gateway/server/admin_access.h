// Who may call the admin API. The admin port changes the gateway's state, so a web page in a
// browser on the same machine must not reach it: requests naming a foreign Host (DNS rebinding)
// or coming from another origin are refused (browsers send Origin with every cross-origin POST and
// Sec-Fetch-Site with every request), and with a token configured every call must carry it. The
// body's Content-Type is not checked: curl and scripts send what they like.
// Thread-safe: immutable after construction.
#pragma once

#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <optional>
#include <string>

namespace korva::gateway {

struct AdminRefusal {
    int status = 403;
    std::string text;
    bool challenge = false;  // answer with WWW-Authenticate: Bearer
};

class AdminAccess {
  public:
    AdminAccess() = default;
    // `host` and `port`: the admin listener's bound address (IPv6 without brackets); `token`:
    // the bearer token every call must carry, "" for none.
    AdminAccess(const std::string& host, unsigned short port, std::string token);

    // Checks, in this order: Host names this listener (else 421), no cross-origin request
    // (403), the bearer token when one is set and `tokenRequired` (401). nullopt when the
    // request may proceed. The console's static files are checked without the token: a browser
    // cannot send it when it loads the page, and the files hold nothing but the page itself.
    std::optional<AdminRefusal> check(
        const boost::beast::http::request<boost::beast::http::string_body>& request,
        bool tokenRequired = true) const;

    // True when `host` (an IP address) is a loopback address.
    static bool isLoopback(const std::string& host);

  private:
    bool hostAllowed(std::string_view hostHeader) const;
    bool tokenMatches(std::string_view authorization) const;

    std::string m_host;
    unsigned short m_port = 0;
    bool m_anyAddress = false;  // bound to 0.0.0.0 or ::
    std::string m_token;
};

}  // namespace korva::gateway
