// CAlertStreamSession: one open alert stream. It names the connection the stream writes to (by
// the exchange handle), the device whose alarms it carries, the link statistics the timers look
// at, and the stream's own bounded queue of parts.
//
// Always held in shared ownership: by the stream table while the stream is open and by the
// worker item that is writing to it, so a stream removed from the table still receives the parts
// already queued for it. The record also holds the request's exchange object; the host learns
// from its release that the plug-in has let go of the stream (a host may then close the
// connection). Writing goes through exchanges rebuilt from the handle.
//
// Output. Parts of one stream are written one after another by a single worker at a time: the
// first part offered to an idle stream is handed to the worker pool (pushPart says kSchedule);
// parts offered while that worker runs wait in the stream's queue, which the worker drains with
// popPart before its turn ends. So the pool holds at most one item per stream, no lock is held
// while a part is written, and two parts of one stream never interleave on the wire.
//
// Bounds. The bytes of the parts waiting for this stream (queued or handed to the pool, not yet
// written) never exceed kMaxQueuedBytes: a part that would pass it is refused with kFull, and
// the stream is ended. An ended stream (full, or its link broken) discards its queued parts at
// once and refuses every later one.
//
// Thread safety: every member may be used from any thread.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "host/http_exchange.h"

namespace QXKORVAProtocol {

class CAlarmParam;

class CAlertStreamSession {
  public:
    // Largest number of bytes (document texts) waiting for one stream.
    static constexpr std::size_t kMaxQueuedBytes = 1024 * 1024;

    enum class Push {
        kSchedule,  // no writer was active: the caller hands the item to the worker pool
        kQueued,    // taken into the queue; the active writer sends it
        kFull,      // refused, the queue was full: the stream has ended (caller frees item)
        kEnded,     // refused, the stream had ended already (caller frees item)
    };

    // lastSendTick starts at the current tick, so a new stream is quiet from its creation on.
    CAlertStreamSession(int httpHandle, int streamId, std::string devIndex,
                        std::shared_ptr<QXHttpService::CHttpExchange> exchange = nullptr);
    // Frees parts that never reached a writer.
    ~CAlertStreamSession();
    CAlertStreamSession(const CAlertStreamSession&) = delete;
    CAlertStreamSession& operator=(const CAlertStreamSession&) = delete;

    int getHttpHandle() const { return m_httpHandle; }
    int getStreamId() const { return m_streamId; }
    const std::string& getDevIndex() const { return m_devIndex; }

    // False until the response head has gone out; alarms and heartbeats skip a stream that is
    // not open yet, so no part can precede the head.
    bool isOpen() const { return m_open.load(std::memory_order_acquire); }
    void markOpen() { m_open.store(true, std::memory_order_release); }

    // Offers item (see Push). On kQueued the session takes it (item becomes null) and drops its
    // stream reference; otherwise item stays with the caller.
    Push pushPart(std::unique_ptr<CAlarmParam>& item) noexcept;
    // The next queued part, or null when the queue is empty or the stream has ended; a null
    // result ends the caller's turn as writer.
    std::unique_ptr<CAlarmParam> popPart() noexcept;
    // The writer is done with a part of this many document bytes (written or not).
    void partDone(std::size_t bytes) noexcept;
    // Ends the stream: queued parts are freed now and later ones refused. True for the call
    // that ended it.
    bool end() noexcept;
    bool ended() const;
    // No writer active and nothing queued.
    bool idle() const;
    // Document bytes waiting for this stream.
    std::size_t queuedBytes() const;

    // Tick of the last complete write (the heartbeat measures quiet time from it).
    std::atomic<uint32_t> lastSendTick;
    // Incomplete writes since the last complete one.
    std::atomic<int32_t> sendFailCount{0};
    // Heartbeats built for this stream so far.
    std::atomic<int32_t> heartBeatCount{0};

  private:
    void freeQueueLocked() noexcept;

    const int m_httpHandle;
    const int m_streamId;
    const std::string m_devIndex;
    const std::shared_ptr<QXHttpService::CHttpExchange> m_exchange;  // held, never used
    std::atomic<bool> m_open{false};

    mutable std::mutex m_queueMutex;       // guards the fields below
    std::unique_ptr<CAlarmParam> m_first;  // the queue, linked through CAlarmParam::m_next
    CAlarmParam* m_last = nullptr;         // its last part (owned by the one before it)
    std::size_t m_queuedBytes = 0;
    bool m_writing = false;  // a worker item of this stream is in the pool or writing
    bool m_ended = false;
};

}  // namespace QXKORVAProtocol
