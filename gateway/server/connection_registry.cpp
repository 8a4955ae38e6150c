#include "gateway/server/connection_registry.h"

#include "gateway/server/connection.h"

namespace korva::gateway {

namespace {

const char* phaseName(Connection::Phase phase) {
    switch (phase) {
        case Connection::Phase::kHandshaking:
            return "handshake";
        case Connection::Phase::kReading:
            return "reading";
        case Connection::Phase::kProcessing:
            return "processing";
        case Connection::Phase::kAwaitingAnswer:
            return "awaiting-answer";
        case Connection::Phase::kWriting:
            return "writing";
        case Connection::Phase::kStreaming:
            return "streaming";
        case Connection::Phase::kClosed:
            return "closed";
    }
    return "unknown";
}

}  // namespace

ConnectionRegistry::Admission ConnectionRegistry::admit(
    const std::shared_ptr<Connection>& connection, std::size_t maxTotal, std::size_t maxPerClient) {
    MutexLock lock(m_mutex);
    if (m_connections.size() >= maxTotal) return Admission::kListenerFull;
    std::size_t& count = m_perClient[connection->clientAddress()];
    if (count >= maxPerClient) return Admission::kClientFull;
    ++count;
    m_connections[connection->id()] = {connection, connection->clientAddress()};
    return Admission::kAdmitted;
}

void ConnectionRegistry::remove(std::uint64_t id) {
    MutexLock lock(m_mutex);
    const auto it = m_connections.find(id);
    if (it == m_connections.end()) return;
    const auto client = m_perClient.find(it->second.clientAddress);
    if (client != m_perClient.end() && --client->second == 0) m_perClient.erase(client);
    m_connections.erase(it);
    if (m_connections.empty()) m_emptied.notify_all();
}

bool ConnectionRegistry::waitEmpty(std::chrono::steady_clock::time_point deadline) {
    MutexLock lock(m_mutex);
    while (!m_connections.empty()) {
        if (m_emptied.wait_until(lock, deadline) == std::cv_status::timeout) {
            return m_connections.empty();
        }
    }
    return true;
}

std::size_t ConnectionRegistry::size() const {
    MutexLock lock(m_mutex);
    return m_connections.size();
}

std::vector<ConnectionRegistry::Entry> ConnectionRegistry::snapshot() const {
    std::vector<std::shared_ptr<Connection>> live;
    {
        MutexLock lock(m_mutex);
        live.reserve(m_connections.size());
        for (const auto& [id, entry] : m_connections) {
            if (auto connection = entry.connection.lock()) live.push_back(std::move(connection));
        }
    }
    std::vector<Entry> entries;
    entries.reserve(live.size());
    for (const auto& connection : live) {
        entries.push_back({connection->id(), connection->peer(), phaseName(connection->phase()),
                           connection->queuedStreamBytes()});
    }
    return entries;
}

void ConnectionRegistry::closeAll() {
    setDraining();
    std::vector<std::shared_ptr<Connection>> live;
    {
        MutexLock lock(m_mutex);
        for (const auto& [id, entry] : m_connections) {
            if (auto connection = entry.connection.lock()) live.push_back(std::move(connection));
        }
    }
    // close() only posts to each strand: no lock is held while sockets are shut.
    for (const auto& connection : live) connection->close();
}

}  // namespace korva::gateway
