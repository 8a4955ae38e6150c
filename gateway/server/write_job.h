// One block of bytes queued for a connection: an answer, a stream head or a stream part.
// Created by any thread, written on the connection's strand. A stream part names the request it
// belongs to, so that the connection can drop it when that request is no longer its stream.
// Thread safety: the state and the written count are atomic; the bytes never change.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace korva::gateway {

class WriteJob {
  public:
    enum class State { kQueued, kWriting, kDone, kFailed };
    // What happens on the connection once the job is written: nothing, the next request is read,
    // the connection closes after draining what the peer still sends, or (at the end of a
    // stream, whose peer only ever reads) it closes at once.
    enum class After { kNothing, kEndRequest, kClose, kEndStream };

    // serial: the request serial of a stream part (0 for answers and heads).
    WriteJob(std::string bytes, After after, bool streamPart, std::uint64_t serial = 0)
        : m_bytes(std::move(bytes)), m_after(after), m_streamPart(streamPart), m_serial(serial) {}

    const std::string& bytes() const { return m_bytes; }
    After after() const { return m_after; }
    bool streamPart() const { return m_streamPart; }
    std::uint64_t serial() const { return m_serial; }
    std::size_t written() const { return m_written.load(std::memory_order_acquire); }
    void addWritten(std::size_t n) { m_written.fetch_add(n, std::memory_order_acq_rel); }
    State state() const { return m_state.load(std::memory_order_acquire); }

    // Queued -> writing; false when the job was started or ended already.
    bool tryStart();
    // Final state: done or failed.
    void finish(State state) { m_state.store(state, std::memory_order_release); }

  private:
    const std::string m_bytes;
    const After m_after;
    const bool m_streamPart;
    const std::uint64_t m_serial;
    std::atomic<std::size_t> m_written{0};
    std::atomic<State> m_state{State::kQueued};
};

}  // namespace korva::gateway
