// CHttpExchange forwards to its ExchangeBackend; ExchangeRegistry maps handles to backends.
#include "host/http_exchange.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

#include "gateway/hostlib/exchange_backend.h"

namespace QXHttpService {

CHttpExchange::CHttpExchange(int httpHandle)
    : m_backend(ExchangeRegistry::instance().find(httpHandle)) {}

CHttpExchange::CHttpExchange(std::shared_ptr<ExchangeBackend> backend)
    : m_backend(std::move(backend)) {}

CHttpExchange::~CHttpExchange() = default;

std::string CHttpExchange::getUrl() const { return m_backend ? m_backend->url() : std::string(); }

unsigned char CHttpExchange::getMethod() const {
    return m_backend ? m_backend->method() : static_cast<unsigned char>(kMethodOther);
}

std::string CHttpExchange::getHead(const std::string& name) const {
    return m_backend ? m_backend->header(name) : std::string();
}

int CHttpExchange::getHttpHandle() const { return m_backend ? m_backend->handle() : -1; }

void CHttpExchange::setHead(const std::string& name, const std::string& value) {
    if (m_backend) m_backend->setHeader(name, value);
}

void CHttpExchange::setStatus(int status) {
    if (m_backend) m_backend->setStatus(status);
}

void CHttpExchange::setMIME(const std::string& mime) {
    if (m_backend) m_backend->setMime(mime);
}

void CHttpExchange::setMIME() {
    if (m_backend) m_backend->setStreamMime();
}

int CHttpExchange::response(const void* data, int length) {
    return m_backend ? m_backend->respond(data, length) : kLinkBroken;
}

bool CHttpExchange::isAttached() const { return m_backend != nullptr; }

namespace {
// Live entries after the last sweep of expired ones (guarded by the registry's mutex; the
// registry is a process-wide singleton).
size_t g_liveAtSweep = 0;
}  // namespace

ExchangeRegistry& ExchangeRegistry::instance() {
    static ExchangeRegistry* registry = new ExchangeRegistry;  // never destroyed
    return *registry;
}

int ExchangeRegistry::add(const std::shared_ptr<ExchangeBackend>& backend) {
    if (!backend) return -1;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_next == INT32_MAX) return -1;  // handles are never reused
    // Backends that died without remove() leave expired entries: sweep them now and then so
    // that the map stays as large as the live exchanges (amortised constant cost).
    if (m_backends.size() >= 64 && m_backends.size() >= 2 * g_liveAtSweep) {
        for (auto it = m_backends.begin(); it != m_backends.end();) {
            it = it->second.expired() ? m_backends.erase(it) : std::next(it);
        }
        g_liveAtSweep = m_backends.size();
    }
    const int handle = m_next++;
    backend->m_handle = handle;
    m_backends.emplace(handle, backend);
    return handle;
}

std::shared_ptr<ExchangeBackend> ExchangeRegistry::find(int handle) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_backends.find(handle);
    return it == m_backends.end() ? nullptr : it->second.lock();
}

void ExchangeRegistry::remove(int handle) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_backends.erase(handle);
}

size_t ExchangeRegistry::size() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<size_t>(std::count_if(m_backends.begin(), m_backends.end(),
                                             [](const auto& entry) { return !entry.second.expired(); }));
}

}  // namespace QXHttpService
