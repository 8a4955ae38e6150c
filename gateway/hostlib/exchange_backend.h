// What stands behind a QXHttpService::CHttpExchange: one request on a socket connection, or a
// recording test double. The HTTP server and the test harness implement it; CHttpExchange
// forwards to it; ExchangeRegistry maps integer handles to live backends.
#pragma once

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

private:
    friend class ExchangeRegistry;
    int m_handle = -1;
};

// Process-wide map from handle to backend. Handles count up from 1 and are never reused.
// Thread-safe.
class ExchangeRegistry {
public:
    static ExchangeRegistry& instance();

    // Registers the backend and returns its new handle.
    int add(const std::shared_ptr<ExchangeBackend>& backend);
    // The backend of a handle, or null once removed.
    std::shared_ptr<ExchangeBackend> find(int handle) const;
    // Forgets the handle; exchanges rebuilt from it afterwards are detached.
    void remove(int handle);
    size_t size() const;

private:
    mutable std::mutex m_mutex;
    int m_next = 1;
    std::unordered_map<int, std::weak_ptr<ExchangeBackend>> m_backends;
};

}  // namespace QXHttpService
