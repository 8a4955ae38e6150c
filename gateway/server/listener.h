// Accepts connections on one address and starts a Connection for each, on its own strand, over
// plain TCP or, given a TLS context, over TLS.
// A connection beyond the listener's maxConnections or its client's maxConnectionsPerClient is
// closed at once, before any byte is read: a refusal costs no descriptor beyond the accept and
// no time, so a flood cannot make the gateway hold anything for refused connections. An accept
// that fails (out of descriptors: EMFILE, ENFILE) is retried after a growing pause instead of
// spinning or giving up.
// Ownership: shared (the pending accept holds it). Thread-safe after bind().
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <memory>
#include <string>

#include "gateway/server/connection.h"
#include "gateway/server/connection_registry.h"

namespace korva::gateway {

class Listener : public std::enable_shared_from_this<Listener> {
  public:
    // `logTag` names the listener in log lines (a string literal). With `tls`, every connection
    // speaks TLS with that context (which must outlive the listener's connections).
    Listener(net::io_context& io, RequestHandler& handler, const ServerLimits& limits,
             ConnectionRegistry& registry, Metrics& metrics, const char* logTag,
             net::ssl::context* tls = nullptr);

    // Opens, binds and listens. Port 0 picks a free port. False with a message on failure.
    bool bind(const std::string& host, unsigned short port, std::string* error);
    // The bound address as "HOST:PORT" (IPv6 hosts in brackets); "" before bind().
    const std::string& boundAddress() const { return m_boundAddress; }

    void start();
    // Stops accepting (any thread).
    void stop();

  private:
    void accept();
    void onAccept(boost::beast::error_code ec, tcp::socket socket);
    void backOff(boost::beast::error_code ec);

    net::io_context& m_io;
    net::strand<net::io_context::executor_type> m_strand;
    tcp::acceptor m_acceptor;
    net::steady_timer m_backoff;
    RequestHandler& m_handler;
    const ServerLimits& m_limits;
    ConnectionRegistry& m_registry;
    Metrics& m_metrics;
    const char* const m_logTag;
    net::ssl::context* const m_tls;
    std::string m_boundAddress;
    std::chrono::milliseconds m_backoffDelay{0};  // 0 while accepting works
};

}  // namespace korva::gateway
