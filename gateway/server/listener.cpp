#include "gateway/server/listener.h"

#include <boost/asio/post.hpp>

#include "gateway/server/metrics.h"
#include "host/qx_log.h"

namespace korva::gateway {

using boost::beast::error_code;

Listener::Listener(net::io_context& io, RequestHandler& handler, const ServerLimits& limits,
                   ConnectionRegistry& registry, Metrics& metrics, const char* logTag,
                   net::ssl::context* tls)
    : m_io(io),
      m_strand(net::make_strand(io)),
      m_acceptor(m_strand),
      m_backoff(m_strand),
      m_handler(handler),
      m_limits(limits),
      m_registry(registry),
      m_metrics(metrics),
      m_logTag(logTag),
      m_tls(tls) {}

bool Listener::bind(const std::string& host, unsigned short port, std::string* error) {
    error_code ec;
    const auto address = net::ip::make_address(host, ec);
    if (ec) {
        *error = "invalid address " + host;
        return false;
    }
    const tcp::endpoint endpoint(address, port);
    m_acceptor.open(endpoint.protocol(), ec);
    if (!ec) m_acceptor.set_option(net::socket_base::reuse_address(true), ec);
    if (!ec) m_acceptor.bind(endpoint, ec);
    if (!ec) m_acceptor.listen(net::socket_base::max_listen_connections, ec);
    if (!ec) {
        // Taken now, while no accept is under way on the acceptor.
        const auto local = m_acceptor.local_endpoint(ec);
        const auto bound = local.address();
        m_boundAddress = (bound.is_v6() ? "[" + bound.to_string() + "]" : bound.to_string()) + ":" +
                         std::to_string(local.port());
    }
    if (ec) {
        *error = ec.message();
        error_code ignored;
        m_acceptor.close(ignored);
        return false;
    }
    return true;
}

void Listener::start() {
    net::post(m_strand, [self = shared_from_this()] { self->accept(); });
}

void Listener::stop() {
    net::post(m_strand, [self = shared_from_this()] {
        error_code ignored;
        self->m_backoff.cancel();
        self->m_acceptor.close(ignored);
    });
}

void Listener::accept() {
    if (!m_acceptor.is_open()) return;
    m_acceptor.async_accept(net::make_strand(m_io),
                            [self = shared_from_this()](error_code ec, tcp::socket socket) {
                                self->onAccept(ec, std::move(socket));
                            });
}

void Listener::onAccept(error_code ec, tcp::socket socket) {
    if (ec == net::error::operation_aborted || !m_acceptor.is_open()) return;
    if (ec) return backOff(ec);
    if (m_backoffDelay.count() != 0) {
        QX_Log_Print(4, m_logTag, "accepting again");
        m_backoffDelay = std::chrono::milliseconds(0);
    }
    if (!m_registry.draining()) {
        error_code ignored;
        socket.set_option(tcp::no_delay(true), ignored);
        auto transport = m_tls ? makeTlsTransport(std::move(socket), *m_tls)
                               : makePlainTransport(std::move(socket));
        auto connection = std::make_shared<Connection>(std::move(transport), m_handler, m_limits,
                                                       m_registry, m_metrics, m_logTag);
        const auto admission =
            m_registry.admit(connection, m_limits.maxConnections, m_limits.maxConnectionsPerClient);
        if (admission == ConnectionRegistry::Admission::kAdmitted) {
            connection->start();
        } else {
            m_metrics.countRefusedConnection(admission ==
                                             ConnectionRegistry::Admission::kClientFull);
        }
        // A connection not admitted closes its socket as it is destroyed here.
    }
    accept();
}

void Listener::backOff(error_code ec) {
    // Out of descriptors or a transient failure: pause, longer while it lasts (50 ms doubling
    // up to 1 s), so that closing connections can free descriptors.
    constexpr std::chrono::milliseconds kFirst{50}, kLongest{1000};
    if (m_backoffDelay.count() == 0) {
        QX_Log_Print(5, m_logTag, "accept failed: %s; retrying", ec.message().c_str());
        m_backoffDelay = kFirst;
    } else {
        m_backoffDelay = std::min(m_backoffDelay * 2, kLongest);
    }
    m_backoff.expires_after(m_backoffDelay);
    m_backoff.async_wait([self = shared_from_this()](error_code timerEc) {
        if (!timerEc) self->accept();
    });
}

}  // namespace korva::gateway
