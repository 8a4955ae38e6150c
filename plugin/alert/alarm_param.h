// CAlarmParam: one queued part. Carries the framed part to send (shared with the other streams
// the same alarm goes to), the target
// stream and the service. Always held by a std::unique_ptr: of whoever queues it, then of its
// stream's queue, or, as the first part of a writer turn, of the worker pool from
// KVL_ThreadPoolFlex_Work on (the one place it is released to a raw pointer), whose worker takes
// it back into a unique_ptr and frees it once written (or discarded).
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "plugin/alert/alert_part.h"

namespace QXKORVAProtocol {

class CAlertStreamSession;
class CEventPto;

class CAlarmParam {
  public:
    CAlarmParam(SharedAlertPart part, std::shared_ptr<CAlertStreamSession> stream, CEventPto* owner)
        : m_part(std::move(part)), m_stream(std::move(stream)), m_owner(owner) {}
    CAlarmParam(const CAlarmParam&) = delete;
    CAlarmParam& operator=(const CAlarmParam&) = delete;

    // The framed part, as written to the wire.
    const std::string& getWire() const { return m_part->wire; }
    // Length of the document inside the part (what the stream's queue bound counts).
    std::size_t getDocumentBytes() const { return m_part->documentBytes; }
    // The target stream (null once released).
    const std::shared_ptr<CAlertStreamSession>& getAlertStreamSession() const { return m_stream; }
    // The alert service that queued the part.
    CEventPto* getUserPtr() const { return m_owner; }
    // Drops the stream reference; used once the part waits in its stream's own queue, which
    // would otherwise keep the stream alive through itself.
    void releaseStream() { m_stream.reset(); }
    // The first part of another stream's writer turn handed to the pool in the same item
    // (null at the end of the list); takeNextTurn unlinks it.
    void setNextTurn(std::unique_ptr<CAlarmParam> next) { m_nextTurn = std::move(next); }
    std::unique_ptr<CAlarmParam> takeNextTurn() { return std::move(m_nextTurn); }

  private:
    friend class CAlertStreamSession;  // links queued parts

    SharedAlertPart m_part;  // never null
    std::shared_ptr<CAlertStreamSession> m_stream;
    CEventPto* m_owner;
    std::unique_ptr<CAlarmParam> m_next;      // the next part in the stream's queue
    std::unique_ptr<CAlarmParam> m_nextTurn;  // the next turn of the same pool item
};

}  // namespace QXKORVAProtocol
