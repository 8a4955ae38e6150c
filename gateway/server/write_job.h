// One block of bytes queued for a connection, with a completion that another thread may wait
// for. Thread-safe.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>

namespace korva::gateway {

class WriteJob {
  public:
    enum class State { kQueued, kWriting, kDone, kFailed, kCancelled };
    // What happens on the connection once the job is written.
    enum class After { kNothing, kEndRequest, kClose };

    WriteJob(std::string bytes, After after, bool streamPart)
        : m_bytes(std::move(bytes)), m_after(after), m_streamPart(streamPart) {}

    const std::string& bytes() const { return m_bytes; }
    After after() const { return m_after; }
    bool streamPart() const { return m_streamPart; }
    std::size_t written() const { return m_written.load(std::memory_order_acquire); }
    void addWritten(std::size_t n) { m_written.fetch_add(n, std::memory_order_acq_rel); }
    State state() const { return m_state.load(std::memory_order_acquire); }

    // Queued -> writing; false when the waiter cancelled the job first.
    bool tryStart() { return transition(State::kQueued, State::kWriting); }
    // Queued -> cancelled; false when writing already began (the bytes then go out whole, so
    // that no partial part corrupts the stream).
    bool tryCancel() { return transition(State::kQueued, State::kCancelled); }
    // Final state (done or failed); wakes the waiter.
    void finish(State state);
    // Waits until the job is done, failed or cancelled, at most `timeout`; the state then.
    State waitFor(std::chrono::milliseconds timeout);

  private:
    bool transition(State from, State to);

    const std::string m_bytes;
    const After m_after;
    const bool m_streamPart;
    std::atomic<std::size_t> m_written{0};
    std::atomic<State> m_state{State::kQueued};
    std::mutex m_mutex;
    std::condition_variable m_cv;
};

}  // namespace korva::gateway
