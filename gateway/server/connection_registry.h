// The open connections of one listener, for admission (a listener-wide and a per-client-address
// cap), counting, the admin state and closing all at shutdown. Thread-safe; no lock is held
// while a connection is touched.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "gateway/hostlib/mutex.h"

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

    enum class Admission { kAdmitted, kListenerFull, kClientFull };

    std::uint64_t nextId() { return m_nextId.fetch_add(1) + 1; }
    // Registers the connection unless the listener holds maxTotal connections or its client
    // address holds maxPerClient; the caller closes a connection that was not admitted.
    Admission admit(const std::shared_ptr<Connection>& connection, std::size_t maxTotal,
                    std::size_t maxPerClient);
    // Forgets the connection (idempotent).
    void remove(std::uint64_t id);
    std::size_t size() const;
    std::vector<Entry> snapshot() const;
    // Closes every connection (each on its own strand) and refuses new requests from now on.
    void closeAll();
    // Waits until no connection is registered or the deadline passed; true = none is left.
    bool waitEmpty(std::chrono::steady_clock::time_point deadline);
    // Set once the gateway stops: connections close after their current answer.
    bool draining() const { return m_draining.load(std::memory_order_acquire); }
    void setDraining() { m_draining.store(true, std::memory_order_release); }

  private:
    mutable Mutex m_mutex;
    struct Registered {
        std::weak_ptr<Connection> connection;
        std::string clientAddress;
    };
    std::unordered_map<std::uint64_t, Registered> m_connections GUARDED_BY(m_mutex);
    std::unordered_map<std::string, std::size_t> m_perClient GUARDED_BY(m_mutex);
    std::condition_variable_any m_emptied;  // signalled when the last connection is removed
    std::atomic<std::uint64_t> m_nextId{0};
    std::atomic<bool> m_draining{false};
};

}  // namespace korva::gateway
