#include "gateway/hostlib/task_queue.h"

#include <algorithm>
#include <atomic>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#include <cassert>
#include <future>
#include <thread>
#include <utility>

namespace korva::host::detail {
namespace {

// The queue whose task the current thread runs, if any.
thread_local const TaskQueue* t_currentQueue = nullptr;

}  // namespace

struct TaskQueue::Run {
    explicit Run(size_t threads) : pool(threads) {}
    boost::asio::thread_pool pool;
    std::atomic<size_t> waiting{0};  // posted tasks that have not started
};

TaskQueue::TaskQueue(std::string name, size_t threads, size_t capacity)
    : m_name(std::move(name)), m_threadCount(std::max<size_t>(threads, 1)), m_capacity(capacity) {}

TaskQueue::~TaskQueue() {
    stop();
}

std::shared_ptr<TaskQueue::Run> TaskQueue::runLocked() {
    if (!m_run) m_run = std::make_shared<Run>(m_threadCount);
    return m_run;
}

bool TaskQueue::post(std::function<void()> task) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Run* run = runLocked().get();
    if (m_capacity != 0 && run->waiting.load() >= m_capacity) return false;
    run->waiting.fetch_add(1);
    // The pool outlives its handlers: stop() joins it before the Run goes.
    boost::asio::post(run->pool, [this, run, task = std::move(task)] {
        run->waiting.fetch_sub(1);
        const TaskQueue* outer = std::exchange(t_currentQueue, this);
        task();
        t_currentQueue = outer;
    });
    return true;
}

void TaskQueue::flush() {
    assert(m_threadCount == 1);
    if (onQueueThread()) return;
    auto reached = std::make_shared<std::promise<void>>();
    std::future<void> done = reached->get_future();
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_run) return;
        // A marker after every task posted so far; dropped by stop, it breaks its promise.
        boost::asio::post(m_run->pool, [reached] { reached->set_value(); });
    }
    done.wait();
}

void TaskQueue::stop() {
    std::shared_ptr<Run> run;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        run.swap(m_run);
    }
    if (!run) return;
    run->pool.stop();
    if (onQueueThread()) {
        // This thread cannot join itself: another one joins the pool once this task returns.
        std::thread([run] { run->pool.join(); }).detach();
        return;
    }
    run->pool.join();
}

bool TaskQueue::onQueueThread() const {
    return t_currentQueue == this;
}

}  // namespace korva::host::detail
