#include "gateway/hostlib/task_queue.h"

#include <algorithm>

namespace korva::host::detail {
namespace {

// The queue whose task the current thread runs, if any.
thread_local const TaskQueue* t_currentQueue = nullptr;

}  // namespace

TaskQueue::TaskQueue(std::string name, size_t threads, size_t capacity)
    : m_name(std::move(name)), m_threadCount(std::max<size_t>(threads, 1)), m_capacity(capacity) {}

TaskQueue::~TaskQueue() {
    stop();
}

bool TaskQueue::post(std::function<void()> task) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_capacity != 0 && m_tasks.size() >= m_capacity) return false;
    if (m_threads.empty()) startLocked();
    m_tasks.push_back(Entry{m_nextSeq++, std::move(task)});
    m_wake.notify_one();
    return true;
}

void TaskQueue::startLocked() {
    m_threads.reserve(m_threadCount);
    for (size_t i = 0; i < m_threadCount; ++i)
        m_threads.emplace_back([this, generation = m_generation] { run(generation); });
}

bool TaskQueue::doneUpToLocked(uint64_t seq) const {
    bool queuedBefore = !m_tasks.empty() && m_tasks.front().seq <= seq;
    bool runningBefore = !m_running.empty() && *m_running.begin() <= seq;
    return !queuedBefore && !runningBefore;
}

void TaskQueue::flush() {
    if (onQueueThread()) return;
    std::unique_lock<std::mutex> lock(m_mutex);
    const uint64_t last = m_nextSeq - 1;
    m_finished.wait(lock, [&] { return doneUpToLocked(last); });
}

void TaskQueue::stop() {
    std::vector<std::thread> threads;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_generation;
        m_tasks.clear();
        threads.swap(m_threads);
        m_wake.notify_all();
        m_finished.notify_all();
    }
    for (auto& thread : threads) {
        if (thread.get_id() == std::this_thread::get_id()) {
            thread.detach();
        } else {
            thread.join();
        }
    }
}

bool TaskQueue::onQueueThread() const {
    return t_currentQueue == this;
}

void TaskQueue::run(uint64_t generation) {
    t_currentQueue = this;
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_wake.wait(lock, [&] { return m_generation != generation || !m_tasks.empty(); });
        if (m_generation != generation) return;
        Entry entry = std::move(m_tasks.front());
        m_tasks.pop_front();
        auto running = m_running.insert(entry.seq);
        lock.unlock();
        entry.task();
        entry.task = nullptr;  // release captures before taking the lock again
        lock.lock();
        m_running.erase(running);
        m_finished.notify_all();
    }
}

}  // namespace korva::host::detail
