// CHttpExchange forwards to its ExchangeBackend; ExchangeRegistry maps handles to backends.
#include "host/http_exchange.h"

#include <algorithm>
#include <iterator>

#include "gateway/hostlib/exchange_backend.h"
#include "gateway/hostlib/host_context.h"

namespace QXHttpService {

CHttpExchange::CHttpExchange(int httpHandle)
    : m_backend(ExchangeRegistry::instance().find(httpHandle)) {}

CHttpExchange::CHttpExchange(std::shared_ptr<ExchangeBackend> backend)
    : m_backend(std::move(backend)) {}

CHttpExchange::~CHttpExchange() = default;

std::string CHttpExchange::getUrl() const {
    return m_backend ? m_backend->url() : std::string();
}

unsigned char CHttpExchange::getMethod() const {
    return m_backend ? m_backend->method() : static_cast<unsigned char>(kMethodOther);
}

std::string CHttpExchange::getHead(const std::string& name) const {
    return m_backend ? m_backend->header(name) : std::string();
}

int CHttpExchange::getHttpHandle() const {
    return m_backend ? m_backend->handle() : -1;
}

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

bool CHttpExchange::isAttached() const {
    return m_backend != nullptr;
}

ExchangeRegistry& ExchangeRegistry::instance() {
    return korva::host::detail::context().exchanges();
}

ExchangeRegistry::ExchangeRegistry(size_t capacity, int lastHandle)
    : m_capacity(std::max<size_t>(capacity, 1)), m_lastHandle(std::max(lastHandle, 1)) {}

int ExchangeRegistry::add(const std::shared_ptr<ExchangeBackend>& backend) {
    if (!backend) return -1;
    std::lock_guard<std::mutex> lock(m_mutex);
    // Backends that died without remove() leave dead entries: sweep them now and then so that
    // the table stays as large as what is still referred to (amortised constant cost), and
    // before refusing for want of room.
    if ((m_entries.size() >= 64 && m_entries.size() >= 2 * m_liveAtSweep) ||
        m_entries.size() >= m_capacity) {
        sweepLocked();
    }
    if (m_entries.size() >= m_capacity) return -1;
    const int handle = nextFreeHandleLocked();
    backend->m_handle = handle;
    m_entries.emplace(handle, Entry{backend, 0});
    return handle;
}

int ExchangeRegistry::nextFreeHandleLocked() {
    // The table is smaller than the handle range, so a free handle comes within size()+1 steps.
    for (;;) {
        const int handle = m_next;
        m_next = m_next >= m_lastHandle ? 1 : m_next + 1;
        if (m_entries.count(handle) == 0) return handle;
    }
}

void ExchangeRegistry::sweepLocked() {
    for (auto it = m_entries.begin(); it != m_entries.end();) {
        const bool dead = it->second.retained == 0 && it->second.backend.expired();
        it = dead ? m_entries.erase(it) : std::next(it);
    }
    m_liveAtSweep = m_entries.size();
}

std::shared_ptr<ExchangeBackend> ExchangeRegistry::find(int handle) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_entries.find(handle);
    return it == m_entries.end() ? nullptr : it->second.backend.lock();
}

void ExchangeRegistry::remove(int handle) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = m_entries.find(handle);
        if (it == m_entries.end()) return;
        if (it->second.retained == 0) {
            m_entries.erase(it);
        } else {
            it->second.backend.reset();
        }
    }
    if (RemovalListener listener = m_listener.load()) listener(handle);
}

bool ExchangeRegistry::retain(int handle) {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_entries.find(handle);
    if (it == m_entries.end() || it->second.backend.expired()) return false;
    ++it->second.retained;
    return true;
}

void ExchangeRegistry::release(int handle) {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_entries.find(handle);
    if (it == m_entries.end() || it->second.retained == 0) return;
    if (--it->second.retained == 0 && it->second.backend.expired()) m_entries.erase(it);
}

size_t ExchangeRegistry::size() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<size_t>(
        std::count_if(m_entries.begin(), m_entries.end(),
                      [](const auto& entry) { return !entry.second.backend.expired(); }));
}

}  // namespace QXHttpService

namespace korva::host::detail {

template struct PartDeleter<QXHttpService::ExchangeRegistry>;
template Owned<QXHttpService::ExchangeRegistry> makePart<QXHttpService::ExchangeRegistry>();

}  // namespace korva::host::detail
