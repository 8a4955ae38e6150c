#include "gateway/server/connection_registry.h"

#include "gateway/server/connection.h"

namespace korva::gateway {

namespace {

const char* phaseName(Connection::Phase phase) {
    switch (phase) {
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

void ConnectionRegistry::add(const std::shared_ptr<Connection>& connection) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_connections[connection->id()] = connection;
}

void ConnectionRegistry::remove(std::uint64_t id) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_connections.erase(id);
}

std::size_t ConnectionRegistry::size() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_connections.size();
}

std::vector<ConnectionRegistry::Entry> ConnectionRegistry::snapshot() const {
    std::vector<std::shared_ptr<Connection>> live;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        live.reserve(m_connections.size());
        for (const auto& [id, weak] : m_connections) {
            if (auto connection = weak.lock()) live.push_back(std::move(connection));
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
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const auto& [id, weak] : m_connections) {
            if (auto connection = weak.lock()) live.push_back(std::move(connection));
        }
    }
    // close() only posts to each strand: no lock is held while sockets are shut.
    for (const auto& connection : live) connection->close();
}

}  // namespace korva::gateway
