// CAlarmParam: one queued part. Carries the EventNotificationAlert text to send, the target
// stream and the service. Always held by a std::unique_ptr: of whoever queues it, then of its
// stream's queue, or, as the first part of a writer turn, of the worker pool from
// KVL_ThreadPoolFlex_Work on (the one place it is released to a raw pointer), whose worker takes
// it back into a unique_ptr and frees it once written (or discarded).
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
    std::unique_ptr<CAlarmParam> m_next;  // the next part in the stream's queue
};

}  // namespace QXKORVAProtocol
