// The open connections of one listener, for counting, the admin state and closing all at
// shutdown. Thread-safe.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace korva::gateway {

class Connection;

class ConnectionRegistry {
  public:
    struct Entry {
        std::uint64_t id = 0;
        std::string peer;
        std::string phase;
        std::size_t queuedStreamBytes = 0;  // stream bytes accepted and not yet written
    };

    std::uint64_t nextId() { return m_nextId.fetch_add(1) + 1; }
    void add(const std::shared_ptr<Connection>& connection);
    void remove(std::uint64_t id);
    std::size_t size() const;
    std::vector<Entry> snapshot() const;
    // Closes every connection (each on its own strand) and refuses new requests from now on.
    void closeAll();
    // Set once the gateway stops: connections close after their current answer.
    bool draining() const { return m_draining.load(std::memory_order_acquire); }
    void setDraining() { m_draining.store(true, std::memory_order_release); }

  private:
    mutable std::mutex m_mutex;
    std::unordered_map<std::uint64_t, std::weak_ptr<Connection>> m_connections;
    std::atomic<std::uint64_t> m_nextId{0};
    std::atomic<bool> m_draining{false};
};

}  // namespace korva::gateway
