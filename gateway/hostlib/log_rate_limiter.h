// Limits how often lines of one cause reach the log: a flood of identical failures (a peer that
// is gone, a device that keeps sending garbage) must not bury everything else.
//
// A cause is an opaque key (the host log uses the format string's address). Each cause may pass
// `perWindow` lines per window; the rest are counted, and the count is handed back with the
// cause's first line of a later window so that the caller can report it. Thread-safe.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <unordered_map>

namespace korva::host::detail {

class LogRateLimiter {
  public:
    using Clock = std::chrono::steady_clock;

    // maxCauses bounds the table; causes beyond it are not limited.
    LogRateLimiter(int perWindow, Clock::duration window, size_t maxCauses);

    struct Verdict {
        bool pass = true;
        uint64_t suppressedBefore = 0;  // lines of this cause held back since it last passed
    };
    Verdict admit(const void* cause, Clock::time_point now);
    // Lines held back so far, in total.
    uint64_t suppressed() const;

  private:
    struct Cause {
        Clock::time_point windowStart;
        int passed = 0;
        uint64_t held = 0;
    };

    void forgetQuietLocked(Clock::time_point now);

    const int m_perWindow;
    const Clock::duration m_window;
    const size_t m_maxCauses;

    mutable std::mutex m_mutex;
    std::unordered_map<const void*, Cause> m_causes;
    uint64_t m_suppressed = 0;
};

}  // namespace korva::host::detail
