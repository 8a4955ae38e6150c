// CAlertStreamTable: the open alert streams of the service, ordered by stream id, with an index
// by device (an alarm finds its device's streams without walking all of them), under one
// reader/writer lock. Lookups and walks take the read side; insert, remove and clear take the
// write side, each for its own short hold. The table never writes to a connection.
// Thread safety: every member may be used from any thread. The callbacks of forEach and
// removeIf run under the lock: they must not call back into the table.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/rw_lock.h"
#include "plugin/alert/alert_stream_session.h"

namespace QXKORVAProtocol {

class CAlertStreamTable {
  public:
    using SessionPtr = std::shared_ptr<CAlertStreamSession>;

    // Adds the stream under its id (an entry with the same id is replaced).
    void insert(const SessionPtr& session);
    // Every stream of the device (byte-wise equal devIndex), in ascending stream id.
    std::vector<SessionPtr> findByDevice(const std::string& devIndex) const;
    size_t countByDevice(const std::string& devIndex) const;
    // Erases the stream with that id; an absent id changes nothing.
    void remove(int streamId);
    void clear();
    size_t size() const;
    // Every stream, in ascending stream id.
    std::vector<SessionPtr> snapshot() const;

    // Calls visit for each stream in ascending id while holding the read side; a false result
    // ends the walk.
    void forEach(const std::function<bool(const SessionPtr&)>& visit) const;
    // Under the write side, erases every stream for which drop is true and returns their
    // device indexes in ascending stream id (a device appears once per erased stream).
    std::vector<std::string> removeIf(const std::function<bool(const CAlertStreamSession&)>& drop);

  private:
    // Erases id from the device index (under the write side).
    void unindexLocked(const std::string& devIndex, int streamId)
        QX_THREAD_ANNOTATION(requires_capability(m_lock));

    mutable QXBase::CRWLock m_lock;
    std::map<int, SessionPtr> m_streams QX_THREAD_ANNOTATION(guarded_by(m_lock));
    // The same streams by device, each device's in ascending id; a device with no stream has no
    // entry.
    std::unordered_map<std::string, std::map<int, SessionPtr>> m_byDevice
        QX_THREAD_ANNOTATION(guarded_by(m_lock));
};

}  // namespace QXKORVAProtocol
