// One thread that runs short routines at given instants: the device configuration bus uses it
// to end relays whose device did not answer in time, without a sleeping thread per relay.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <utility>

namespace korva::host::detail {

class DeadlineTimer {
  public:
    using Clock = std::chrono::steady_clock;

    DeadlineTimer() = default;
    ~DeadlineTimer();
    DeadlineTimer(const DeadlineTimer&) = delete;
    DeadlineTimer& operator=(const DeadlineTimer&) = delete;

    // Runs routine on the timer thread at (or soon after) when. Routines run one at a time, in
    // deadline order, and must be short and must not throw. Returns an id for cancel (never 0).
    uint64_t schedule(Clock::time_point when, std::function<void()> routine);

    // Forgets a routine that has not started. False when it already ran, runs now, or is unknown.
    bool cancel(uint64_t id);

    // Joins the thread and forgets every scheduled routine. A later schedule starts it again.
    void stop();

  private:
    using Key = std::pair<Clock::time_point, uint64_t>;

    void run(uint64_t generation);

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<Key, std::function<void()>> m_due;
    std::unordered_map<uint64_t, Clock::time_point> m_whenById;
    std::thread m_thread;
    uint64_t m_nextId = 1;
    uint64_t m_generation = 0;
};

}  // namespace korva::host::detail
