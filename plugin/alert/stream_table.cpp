#include "plugin/alert/stream_table.h"

namespace QXKORVAProtocol {

void CAlertStreamTable::insert(const SessionPtr& session) {
    QXBase::CWriteLockGuard guard(m_lock);
    m_streams[session->getStreamId()] = session;
}

std::vector<CAlertStreamTable::SessionPtr> CAlertStreamTable::findByDevice(
    const std::string& devIndex) const {
    std::vector<SessionPtr> found;
    QXBase::CReadLockGuard guard(m_lock);
    for (const auto& [id, session] : m_streams) {
        if (session->getDevIndex() == devIndex) found.push_back(session);
    }
    return found;
}

size_t CAlertStreamTable::countByDevice(const std::string& devIndex) const {
    size_t count = 0;
    QXBase::CReadLockGuard guard(m_lock);
    for (const auto& [id, session] : m_streams) {
        if (session->getDevIndex() == devIndex) ++count;
    }
    return count;
}

void CAlertStreamTable::remove(int streamId) {
    SessionPtr dropped;  // released after the lock, like every record that leaves the table
    QXBase::CWriteLockGuard guard(m_lock);
    const auto it = m_streams.find(streamId);
    if (it == m_streams.end()) return;
    dropped = std::move(it->second);
    m_streams.erase(it);
}

void CAlertStreamTable::clear() {
    // The records are released after the lock: a record's last owner frees queued parts and
    // releases the stream's exchange, which the host answers by ending the stream.
    std::map<int, SessionPtr> dropped;
    {
        QXBase::CWriteLockGuard guard(m_lock);
        dropped.swap(m_streams);
    }
}

size_t CAlertStreamTable::size() const {
    QXBase::CReadLockGuard guard(m_lock);
    return m_streams.size();
}

std::vector<CAlertStreamTable::SessionPtr> CAlertStreamTable::snapshot() const {
    std::vector<SessionPtr> all;
    QXBase::CReadLockGuard guard(m_lock);
    all.reserve(m_streams.size());
    for (const auto& [id, session] : m_streams) all.push_back(session);
    return all;
}

void CAlertStreamTable::forEach(const std::function<bool(const SessionPtr&)>& visit) const {
    QXBase::CReadLockGuard guard(m_lock);
    for (const auto& [id, session] : m_streams) {
        if (!visit(session)) break;
    }
}

std::vector<std::string> CAlertStreamTable::removeIf(
    const std::function<bool(const CAlertStreamSession&)>& drop) {
    std::vector<std::string> devices;
    std::vector<SessionPtr> dropped;  // released after the lock
    QXBase::CWriteLockGuard guard(m_lock);
    for (auto it = m_streams.begin(); it != m_streams.end();) {
        if (drop(*it->second)) {
            devices.push_back(it->second->getDevIndex());
            dropped.push_back(std::move(it->second));
            it = m_streams.erase(it);
        } else {
            ++it;
        }
    }
    return devices;
}

}  // namespace QXKORVAProtocol
