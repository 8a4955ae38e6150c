// Routines run at given instants on one thread (an asio::io_context with a steady_timer per
// routine): the device configuration bus uses it to end relays whose device did not answer in
// time, without a sleeping thread per relay.
//
// Thread safety: every member may be called from any thread, concurrently; routines run one at
// a time on the timer thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

namespace korva::host::detail {

class DeadlineTimer {
  public:
    using Clock = std::chrono::steady_clock;

    DeadlineTimer() = default;
    ~DeadlineTimer();
    DeadlineTimer(const DeadlineTimer&) = delete;
    DeadlineTimer& operator=(const DeadlineTimer&) = delete;

    // Runs routine on the timer thread at (or soon after) when. Routines must be short and must
    // not throw. Returns an id for cancel (never 0).
    uint64_t schedule(Clock::time_point when, std::function<void()> routine);

    // Forgets a routine that has not started. False when it already ran, runs now, or is unknown.
    bool cancel(uint64_t id);

    // Ends the thread and forgets every scheduled routine. A later schedule starts it again.
    void stop();

  private:
    struct Run;  // one io_context and its thread, from the first schedule until stop

    mutable std::mutex m_mutex;  // guards m_run (the pointer) and m_nextId
    std::shared_ptr<Run> m_run;
    uint64_t m_nextId = 1;
};

}  // namespace korva::host::detail
