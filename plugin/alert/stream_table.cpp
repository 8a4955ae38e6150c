#include "plugin/alert/stream_table.h"

namespace QXKORVAProtocol {

void CAlertStreamTable::unindexLocked(const std::string& devIndex, int streamId) {
    const auto device = m_byDevice.find(devIndex);
    if (device == m_byDevice.end()) return;
    device->second.erase(streamId);
    if (device->second.empty()) m_byDevice.erase(device);
}

void CAlertStreamTable::insert(const SessionPtr& session) {
    const int id = session->getStreamId();
    SessionPtr replaced;  // released after the lock
    QXBase::CWriteLockGuard guard(m_lock);
    SessionPtr& slot = m_streams[id];
    if (slot) unindexLocked(slot->getDevIndex(), id);
    replaced = std::move(slot);
    slot = session;
    m_byDevice[session->getDevIndex()][id] = session;
}

std::vector<CAlertStreamTable::SessionPtr> CAlertStreamTable::findByDevice(
    const std::string& devIndex) const {
    std::vector<SessionPtr> found;
    QXBase::CReadLockGuard guard(m_lock);
    const auto device = m_byDevice.find(devIndex);
    if (device == m_byDevice.end()) return found;
    found.reserve(device->second.size());
    for (const auto& [id, session] : device->second) found.push_back(session);
    return found;
}

size_t CAlertStreamTable::countByDevice(const std::string& devIndex) const {
    QXBase::CReadLockGuard guard(m_lock);
    const auto device = m_byDevice.find(devIndex);
    return device == m_byDevice.end() ? 0 : device->second.size();
}

void CAlertStreamTable::remove(int streamId) {
    SessionPtr dropped;  // released after the lock, like every record that leaves the table
    QXBase::CWriteLockGuard guard(m_lock);
    const auto it = m_streams.find(streamId);
    if (it == m_streams.end()) return;
    dropped = std::move(it->second);
    m_streams.erase(it);
    unindexLocked(dropped->getDevIndex(), streamId);
}

void CAlertStreamTable::clear() {
    // The records are released after the lock: a record's last owner frees queued parts and
    // releases the stream's exchange, which the host answers by ending the stream.
    std::map<int, SessionPtr> dropped;
    std::unordered_map<std::string, std::map<int, SessionPtr>> droppedIndex;
    {
        QXBase::CWriteLockGuard guard(m_lock);
        dropped.swap(m_streams);
        droppedIndex.swap(m_byDevice);
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
            unindexLocked(it->second->getDevIndex(), it->first);
            dropped.push_back(std::move(it->second));
            it = m_streams.erase(it);
        } else {
            ++it;
        }
    }
    return devices;
}

}  // namespace QXKORVAProtocol
