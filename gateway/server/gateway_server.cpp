#include "gateway/server/gateway_server.h"

#include <sys/resource.h>

#include <chrono>
#include <exception>

#include "gateway/hostlib/json_text.h"
#include "host/device_mgr.h"
#include "host/qx_log.h"

namespace korva::gateway {

namespace {

// The KORVA listener's limits, maxConnections lowered to what the open-file limit allows.
ServerLimits korvaLimits(ServerLimits limits) {
    rlimit nofile{};
    if (getrlimit(RLIMIT_NOFILE, &nofile) != 0 || nofile.rlim_cur == RLIM_INFINITY) return limits;
    const std::size_t kept = GatewayServer::kReservedDescriptors + GatewayServer::kAdminConnections;
    const std::size_t open = static_cast<std::size_t>(nofile.rlim_cur);
    const std::size_t budget = open > kept + 1 ? open - kept : 1;
    if (limits.maxConnections > budget) {
        QX_Log_Print(4, "HTTP",
                     "maxConnections %zu lowered to %zu: the open-file limit is %zu, %zu of them "
                     "kept for the process and the admin listener",
                     limits.maxConnections, budget, open, kept);
        limits.maxConnections = budget;
    }
    return limits;
}

// The admin listener's own budget, apart from the KORVA listener's.
ServerLimits adminLimits(ServerLimits limits) {
    limits.maxConnections = GatewayServer::kAdminConnections;
    limits.maxConnectionsPerClient = GatewayServer::kAdminConnections;
    return limits;
}

// Device manager notification: one "device" event (user: the AdminEvents).
void publishDeviceEvent(int event, const char* devIndex, void* user) {
    auto* events = static_cast<AdminEvents*>(user);
    if (devIndex == nullptr || !events->hasSubscribers()) return;
    try {
        Json::Value data(Json::objectValue);
        data["devIndex"] = devIndex;
        data["attached"] = event == kDeviceEventAttached;
        events->publish("device", korva::host::writeCompactJson(data));
    } catch (...) {
        // Out of memory: the console misses one device change; /admin/state has it.
    }
}

}  // namespace

GatewayServer::GatewayServer(const PluginApi& plugin, const ServerLimits& limits, int ioThreads)
    : m_limits(korvaLimits(limits)),
      m_adminLimits(adminLimits(limits)),
      m_ioThreadCount(ioThreads > 0 ? ioThreads : 1),
      m_pluginHandler(plugin),
      m_adminHandler(m_korvaConnections, m_metrics) {
    m_pluginHandler.setStreamTable(&m_streams);
    m_adminHandler.setConsoleSources(&m_requestLog, &m_events, &m_streams);
    m_io.emplace(m_ioThreadCount);
    m_korvaListener = std::make_shared<Listener>(*m_io, m_pluginHandler, m_limits,
                                                 m_korvaConnections, m_metrics, "HTTP");
    m_adminListener = std::make_shared<Listener>(*m_io, m_adminHandler, m_adminLimits,
                                                 m_adminConnections, m_adminMetrics, "ADMIN");
}

GatewayServer::~GatewayServer() {
    closeConnections();
    m_korvaListener.reset();
    m_adminListener.reset();
    m_tlsListener.reset();
    m_io.reset();  // frees pending handlers (and the connections they hold) first
}

bool GatewayServer::bind(const ListenAddress& korva, const ListenAddress& admin,
                         std::string* error) {
    std::string reason;
    if (!m_korvaListener->bind(korva.host, korva.port, &reason)) {
        *error =
            "cannot listen on " + korva.host + ":" + std::to_string(korva.port) + ": " + reason;
        return false;
    }
    if (!m_adminListener->bind(admin.host, admin.port, &reason)) {
        *error = "cannot listen on " + admin.host + ":" + std::to_string(admin.port) +
                 " (admin): " + reason;
        return false;
    }
    return true;
}

bool GatewayServer::bindTls(const ListenAddress& address,
                            std::shared_ptr<net::ssl::context> context, std::string* error) {
    m_tlsContext = std::move(context);
    m_tlsListener = std::make_shared<Listener>(*m_io, m_pluginHandler, m_limits, m_korvaConnections,
                                               m_metrics, "HTTPS", m_tlsContext.get());
    std::string reason;
    if (!m_tlsListener->bind(address.host, address.port, &reason)) {
        *error = "cannot listen on " + address.host + ":" + std::to_string(address.port) +
                 " (https): " + reason;
        m_tlsListener.reset();
        return false;
    }
    return true;
}

void GatewayServer::start() {
    m_work.emplace(m_io->get_executor());
    setAccessObserver(&m_requestLog);
    m_events.start(m_io->get_executor());
    m_watchingDevices = QX_DeviceMgr_NotifyAttach(publishDeviceEvent, &m_events) == 0;
    if (m_tlsListener) m_tlsListener->start();
    m_korvaListener->start();
    m_adminListener->start();
    for (int i = 0; i < m_ioThreadCount; ++i) {
        m_threads.emplace_back([this] { runIoThread(); });
    }
}

void GatewayServer::runIoThread() {
    markIoThread();
    // run() returns normally once the loop is stopped; an exception thrown by a handler leaves
    // run() with the loop intact, so it is logged and the thread runs on.
    for (;;) {
        try {
            m_io->run();
            return;
        } catch (const std::exception& error) {
            QX_Log_Print(5, "HTTP", "I/O handler failed: %s", error.what());
        } catch (...) {
            QX_Log_Print(5, "HTTP", "I/O handler failed");
        }
    }
}

void GatewayServer::stopAccepting() {
    m_korvaListener->stop();
    m_adminListener->stop();
    if (m_tlsListener) m_tlsListener->stop();
    m_korvaConnections.setDraining();
    m_adminConnections.setDraining();
    m_pluginHandler.stop();
}

void GatewayServer::closeConnections() {
    if (m_threads.empty()) return;
    if (m_watchingDevices) QX_DeviceMgr_NotifyDetach(publishDeviceEvent);
    m_watchingDevices = false;
    m_events.stop();
    m_korvaListener->stop();
    m_adminListener->stop();
    if (m_tlsListener) m_tlsListener->stop();
    m_korvaConnections.closeAll();
    m_adminConnections.closeAll();
    // Closing is posted to each connection's strand; give the threads up to three seconds to run
    // it, then stop the loop whatever remains.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    m_korvaConnections.waitEmpty(deadline);
    m_adminConnections.waitEmpty(deadline);
    m_work.reset();
    m_io->stop();
    for (auto& thread : m_threads) thread.join();
    m_threads.clear();
    removeAccessObserver(&m_requestLog);  // no access line can be under way any more
}

}  // namespace korva::gateway
