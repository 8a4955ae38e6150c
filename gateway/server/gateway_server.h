// The gateway's HTTP side: one I/O thread pool, the KORVA listener (requests go to the
// protocol plug-in), optionally the KORVA listener over TLS (the same handler, limits and
// connection registry: caps count both together), and the admin listener.
//
// Descriptors: the KORVA listener's maxConnections is lowered to fit RLIMIT_NOFILE, keeping
// kReservedDescriptors for the process and the admin listener's own budget (kAdminConnections),
// so the admin listener stays reachable while the KORVA listener is full.
// Exceptions: an exception that escapes a handler on an I/O thread is logged and the thread
// goes on running the loop.
//
// The admin console's sources: the request log (fed by the access log while the server runs),
// the event hub (heartbeats on the I/O pool; device attach/detach events from the device
// manager's notifications, registered while the server runs: one running server per process)
// and the table of open alert streams.
//
// Lifetime: bind() both listeners, start() the I/O threads and accepting, then stopAccepting()
// once: accepting ends, connections drain (no new request, no stream part queued) and the plug-in
// is no longer entered; closeConnections() then closes every connection and joins the threads,
// and only after it the caller uninitialises the plug-in and the host.
#pragma once

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "gateway/server/admin_events.h"
#include "gateway/server/admin_handler.h"
#include "gateway/server/connection_registry.h"
#include "gateway/server/listener.h"
#include "gateway/server/metrics.h"
#include "gateway/server/plugin_handler.h"
#include "gateway/server/request_log.h"
#include "gateway/server/stream_table.h"

namespace korva::gateway {

struct ListenAddress {
    std::string host;
    unsigned short port = 0;
};

class GatewayServer {
  public:
    static constexpr std::size_t kReservedDescriptors = 64;
    static constexpr std::size_t kAdminConnections = 32;

    GatewayServer(const PluginApi& plugin, const ServerLimits& limits, int ioThreads);
    ~GatewayServer();
    GatewayServer(const GatewayServer&) = delete;
    GatewayServer& operator=(const GatewayServer&) = delete;

    // Binds both listeners; false with a message naming the address on failure.
    bool bind(const ListenAddress& korva, const ListenAddress& admin, std::string* error);
    std::string korvaAddress() const { return m_korvaListener->boundAddress(); }
    std::string adminAddress() const { return m_adminListener->boundAddress(); }
    // Binds the KORVA listener over TLS with `context` (before start()); false with a message.
    bool bindTls(const ListenAddress& address, std::shared_ptr<net::ssl::context> context,
                 std::string* error);
    // "" when TLS is off.
    std::string tlsAddress() const { return m_tlsListener ? m_tlsListener->boundAddress() : ""; }

    void start();
    // Stops accepting and refuses new calls into the plug-in; returns once no call is under way.
    void stopAccepting();
    // Closes every connection and joins the I/O threads.
    void closeConnections();

    Metrics& metrics() { return m_metrics; }
    AdminHandler& adminHandler() { return m_adminHandler; }
    ConnectionRegistry& korvaConnections() { return m_korvaConnections; }
    AdminEvents& events() { return m_events; }
    StreamTable& streams() { return m_streams; }

  private:
    void runIoThread();

    const ServerLimits m_limits;
    const ServerLimits m_adminLimits;
    const int m_ioThreadCount;
    Metrics m_metrics;
    Metrics m_adminMetrics;  // the admin port's own traffic: counted, never reported
    AdminEvents m_events;
    RequestLog m_requestLog{&m_events};
    StreamTable m_streams{&m_events};
    bool m_watchingDevices = false;
    ConnectionRegistry m_korvaConnections;
    ConnectionRegistry m_adminConnections;
    PluginHandler m_pluginHandler;
    AdminHandler m_adminHandler;
    std::shared_ptr<net::ssl::context> m_tlsContext;
    // Destroyed before the registries, handlers and TLS context its pending handlers refer to.
    std::optional<net::io_context> m_io;
    std::optional<net::executor_work_guard<net::io_context::executor_type>> m_work;
    std::shared_ptr<Listener> m_korvaListener;
    std::shared_ptr<Listener> m_adminListener;
    std::shared_ptr<Listener> m_tlsListener;  // null when TLS is off
    std::vector<std::thread> m_threads;
};

}  // namespace korva::gateway
