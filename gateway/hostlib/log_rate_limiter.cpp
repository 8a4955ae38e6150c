#include "gateway/hostlib/log_rate_limiter.h"

#include <iterator>

namespace korva::host::detail {

LogRateLimiter::LogRateLimiter(int perWindow, Clock::duration window, size_t maxCauses)
    : m_perWindow(perWindow), m_window(window), m_maxCauses(maxCauses) {}

LogRateLimiter::Verdict LogRateLimiter::admit(const void* cause, Clock::time_point now) {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_causes.find(cause);
    if (it == m_causes.end()) {
        if (m_causes.size() >= m_maxCauses) forgetQuietLocked(now);
        if (m_causes.size() >= m_maxCauses) return {};
        it = m_causes.emplace(cause, Cause{now, 0, 0}).first;
    }
    Cause& entry = it->second;
    if (now - entry.windowStart >= m_window) {
        entry.windowStart = now;
        entry.passed = 0;
    }
    if (entry.passed >= m_perWindow) {
        ++entry.held;
        ++m_suppressed;
        return {false, 0};
    }
    ++entry.passed;
    Verdict verdict{true, entry.held};
    entry.held = 0;
    return verdict;
}

uint64_t LogRateLimiter::suppressed() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_suppressed;
}

void LogRateLimiter::forgetQuietLocked(Clock::time_point now) {
    // A cause whose window is over and which holds nothing back has nothing left to report.
    for (auto it = m_causes.begin(); it != m_causes.end();) {
        const bool quiet = now - it->second.windowStart >= m_window && it->second.held == 0;
        it = quiet ? m_causes.erase(it) : std::next(it);
    }
}

}  // namespace korva::host::detail
