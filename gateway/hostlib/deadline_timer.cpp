#include "gateway/hostlib/deadline_timer.h"

namespace korva::host::detail {

DeadlineTimer::~DeadlineTimer() {
    stop();
}

uint64_t DeadlineTimer::schedule(Clock::time_point when, std::function<void()> routine) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_thread.joinable()) {
        m_thread = std::thread([this, generation = m_generation] { run(generation); });
    }
    const uint64_t id = m_nextId++;
    const bool earliest = m_due.empty() || Key{when, id} < m_due.begin()->first;
    m_due.emplace(Key{when, id}, std::move(routine));
    m_whenById.emplace(id, when);
    if (earliest) m_changed.notify_one();
    return id;
}

bool DeadlineTimer::cancel(uint64_t id) {
    std::function<void()> dropped;  // destroyed after the lock is released
    std::lock_guard<std::mutex> lock(m_mutex);
    auto found = m_whenById.find(id);
    if (found == m_whenById.end()) return false;
    auto entry = m_due.find(Key{found->second, id});
    dropped = std::move(entry->second);
    m_due.erase(entry);
    m_whenById.erase(found);
    return true;
}

void DeadlineTimer::stop() {
    std::thread thread;
    std::map<Key, std::function<void()>> dropped;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_generation;
        dropped.swap(m_due);
        m_whenById.clear();
        thread.swap(m_thread);
        m_changed.notify_all();
    }
    if (!thread.joinable()) return;
    if (thread.get_id() == std::this_thread::get_id()) {
        thread.detach();
    } else {
        thread.join();
    }
}

void DeadlineTimer::run(uint64_t generation) {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        if (m_generation != generation) return;
        if (m_due.empty()) {
            m_changed.wait(lock);
            continue;
        }
        auto first = m_due.begin();
        // A copy: the entry may be cancelled (and freed) while the wait releases the lock.
        const Clock::time_point when = first->first.first;
        if (Clock::now() < when) {
            m_changed.wait_until(lock, when);
            continue;
        }
        std::function<void()> routine = std::move(first->second);
        m_whenById.erase(first->first.second);
        m_due.erase(first);
        lock.unlock();
        routine();
        routine = nullptr;
        lock.lock();
    }
}

}  // namespace korva::host::detail
