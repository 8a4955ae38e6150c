// CAlertStreamSession: one open alert stream. It names the connection the stream writes to (by
// the exchange handle; it does not own the connection, so destroying it closes nothing), the
// device whose alarms it carries, and the link statistics the timers look at.
//
// Always held in shared ownership: by the stream table while the stream is open and by every
// worker that is writing to it, so a stream removed from the table still receives the parts
// already queued for it.
//
// Output order. Parts of one stream are written one after another by a single worker at a time:
// a worker hands its part to the session with pushPart; the worker that finds no writer active
// becomes the writer and drains the session's queue with popPart until it is empty. No lock is
// held while a part is written, and two parts of one stream never interleave on the wire.
//
// Thread safety: every member may be used from any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

namespace QXKORVAProtocol {

class CAlarmParam;

class CAlertStreamSession {
  public:
    // lastSendTick starts at the current tick, so a new stream is quiet from its creation on.
    CAlertStreamSession(int httpHandle, int streamId, std::string devIndex);
    // Frees parts that never reached a writer (none when every push was drained).
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

    // Takes ownership of item. True when the caller has become this stream's writer and must
    // drain with popPart; false when another worker is writing and will send it.
    bool pushPart(CAlarmParam* item) noexcept;
    // The next part to write (owned by the caller), or null when the queue is empty; a null
    // result also ends the caller's turn as writer.
    CAlarmParam* popPart() noexcept;

    // Tick of the last complete write (the heartbeat measures quiet time from it).
    std::atomic<uint32_t> lastSendTick;
    // Incomplete writes since the last complete one.
    std::atomic<int32_t> sendFailCount{0};
    // Heartbeats built for this stream so far.
    std::atomic<int32_t> heartBeatCount{0};

  private:
    const int m_httpHandle;
    const int m_streamId;
    const std::string m_devIndex;
    std::atomic<bool> m_open{false};

    std::mutex m_queueMutex;  // guards the three fields below
    CAlarmParam* m_first = nullptr;
    CAlarmParam* m_last = nullptr;
    bool m_writing = false;
};

}  // namespace QXKORVAProtocol
