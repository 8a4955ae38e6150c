#include "gateway/server/write_job.h"

namespace korva::gateway {

bool WriteJob::transition(State from, State to) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_state.load() != from) return false;
    m_state.store(to, std::memory_order_release);
    if (to == State::kCancelled) m_cv.notify_all();
    return true;
}

void WriteJob::finish(State state) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_state.store(state, std::memory_order_release);
    }
    m_cv.notify_all();
}

WriteJob::State WriteJob::waitFor(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_cv.wait_for(lock, timeout, [this] {
        const State s = m_state.load();
        return s == State::kDone || s == State::kFailed || s == State::kCancelled;
    });
    return m_state.load();
}

}  // namespace korva::gateway
