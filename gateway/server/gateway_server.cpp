#include "gateway/server/gateway_server.h"

#include <chrono>

namespace korva::gateway {

GatewayServer::GatewayServer(const PluginApi& plugin, const ServerLimits& limits, int ioThreads)
    : m_limits(limits),
      m_ioThreadCount(ioThreads > 0 ? ioThreads : 1),
      m_pluginHandler(plugin),
      m_adminHandler(m_korvaConnections, m_metrics) {
    m_io.emplace(m_ioThreadCount);
    m_korvaListener = std::make_shared<Listener>(*m_io, m_pluginHandler, m_limits,
                                                 m_korvaConnections, &m_metrics);
    m_adminListener =
        std::make_shared<Listener>(*m_io, m_adminHandler, m_limits, m_adminConnections, nullptr);
}

GatewayServer::~GatewayServer() {
    closeConnections();
    m_korvaListener.reset();
    m_adminListener.reset();
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

void GatewayServer::start() {
    m_work.emplace(m_io->get_executor());
    m_korvaListener->start();
    m_adminListener->start();
    for (int i = 0; i < m_ioThreadCount; ++i) {
        m_threads.emplace_back([this] {
            markIoThread();
            m_io->run();
        });
    }
}

void GatewayServer::stopAccepting() {
    m_korvaListener->stop();
    m_adminListener->stop();
    m_korvaConnections.setDraining();
    m_adminConnections.setDraining();
    m_pluginHandler.stop();
}

void GatewayServer::closeConnections() {
    if (m_threads.empty()) return;
    m_korvaListener->stop();
    m_adminListener->stop();
    m_korvaConnections.closeAll();
    m_adminConnections.closeAll();
    // Closing is posted to each connection's strand; give the threads a moment to run it, then
    // stop the loop whatever remains.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    while ((m_korvaConnections.size() + m_adminConnections.size()) != 0 &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    m_work.reset();
    m_io->stop();
    for (auto& thread : m_threads) thread.join();
    m_threads.clear();
}

}  // namespace korva::gateway
