// CAlarmParam: one queued part. Carries the EventNotificationAlert text to send, the target
// stream and the service. Allocated with a non-throwing new by whoever queues it; it then
// belongs to its stream's queue, or, as the first part of a writer turn, to the worker pool from
// KVL_ThreadPoolFlex_Work on, and is freed by the worker that writes (or discards) it.
#pragma once

#include <memory>
#include <string>

namespace QXKORVAProtocol {

class CAlertStreamSession;
class CEventPto;

class CAlarmParam {
  public:
    CAlarmParam(std::string alarmXml, std::shared_ptr<CAlertStreamSession> stream, CEventPto* owner)
        : m_alarmXml(std::move(alarmXml)), m_stream(std::move(stream)), m_owner(owner) {}
    CAlarmParam(const CAlarmParam&) = delete;
    CAlarmParam& operator=(const CAlarmParam&) = delete;

    const std::string& getAlarmXml() const { return m_alarmXml; }
    // The target stream (null once released).
    const std::shared_ptr<CAlertStreamSession>& getAlertStreamSession() const { return m_stream; }
    // The alert service that queued the part.
    CEventPto* getUserPtr() const { return m_owner; }
    // Drops the stream reference; used once the part waits in its stream's own queue, which
    // would otherwise keep the stream alive through itself.
    void releaseStream() { m_stream.reset(); }

  private:
    friend class CAlertStreamSession;  // links queued parts

    std::string m_alarmXml;
    std::shared_ptr<CAlertStreamSession> m_stream;
    CEventPto* m_owner;
    CAlarmParam* m_next = nullptr;
};

}  // namespace QXKORVAProtocol
