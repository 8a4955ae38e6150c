// What stands behind a QXHttpService::CHttpExchange: one request on a socket connection, or a
// recording test double. The HTTP server and the test harness implement it; CHttpExchange
// forwards to it; ExchangeRegistry maps integer handles to live backends.
#pragma once

#include <atomic>
#include <climits>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "host/http_exchange.h"

namespace QXHttpService {

class ExchangeBackend {
  public:
    virtual ~ExchangeBackend() = default;

    // Request side (immutable once the backend is registered).
    virtual std::string url() const = 0;
    virtual unsigned char method() const = 0;
    virtual std::string header(const std::string& name) const = 0;

    // Answer side. May be called from any thread; implementations serialise them.
    virtual void setHeader(const std::string& name, const std::string& value) = 0;
    virtual void setStatus(int status) = 0;
    virtual void setMime(const std::string& mime) = 0;
    virtual void setStreamMime() = 0;
    // See CHttpExchange::response for the contract of the result.
    virtual int respond(const void* data, int length) = 0;

    // Handle assigned by ExchangeRegistry::add (-1 before).
    int handle() const { return m_handle; }
    // The client's network address without port ("" when unknown): the device configuration
    // bus bounds the relays of one client by it.
    virtual std::string peer() const { return {}; }

  private:
    friend class ExchangeRegistry;
    int m_handle = -1;
};

// Map from handle to backend; the host context owns the process-wide one (tests may build their
// own).
//
// Handles run from 1 to lastHandle; the counter wraps round and skips every handle still in the
// table, so a handle is reused only when nothing refers to it any more. A handle stays in the
// table while its backend is registered (until remove(), or until the backend is destroyed) and
// while a relay retains it (until release()). The table holds at most `capacity` handles; add()
// refuses with -1 when it is full. Thread-safe; the removal listener runs outside the lock.
class ExchangeRegistry {
  public:
    // Far above the connections a gateway keeps open plus the relays it may have outstanding.
    static constexpr size_t kDefaultCapacity = 65536;
    // Called with the handle after each remove(), on the removing thread, without locks held.
    using RemovalListener = void (*)(int handle);

    static ExchangeRegistry& instance();
    explicit ExchangeRegistry(size_t capacity = kDefaultCapacity, int lastHandle = INT_MAX);
    ExchangeRegistry(const ExchangeRegistry&) = delete;
    ExchangeRegistry& operator=(const ExchangeRegistry&) = delete;

    // Registers the backend and returns its new handle; -1 for a null backend or a full table.
    int add(const std::shared_ptr<ExchangeBackend>& backend);
    // The backend of a handle, or null once removed.
    std::shared_ptr<ExchangeBackend> find(int handle) const;
    // Forgets the backend; exchanges rebuilt from the handle afterwards are detached. Then tells
    // the removal listener.
    void remove(int handle);
    // Keeps a registered handle from being reused until the matching release(), even once it is
    // removed. False (nothing retained) when the handle has no registered backend.
    bool retain(int handle);
    void release(int handle);
    void setRemovalListener(RemovalListener listener) { m_listener.store(listener); }
    // Registered backends that are still alive.
    size_t size() const;

  private:
    struct Entry {
        std::weak_ptr<ExchangeBackend> backend;  // reset by remove()
        int retained = 0;
    };

    int nextFreeHandleLocked();
    void sweepLocked();

    const size_t m_capacity;
    const int m_lastHandle;
    std::atomic<RemovalListener> m_listener{nullptr};
    mutable std::mutex m_mutex;
    int m_next = 1;
    size_t m_liveAtSweep = 0;
    std::unordered_map<int, Entry> m_entries;
};

}  // namespace QXHttpService
