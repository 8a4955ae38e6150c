// A FIFO of tasks run by a fixed number of threads (an asio::thread_pool), with a bound on the
// tasks waiting: the host's bus workers, the alarm delivery thread and the device notification
// thread are each one TaskQueue.
//
// Thread safety: every member may be called from any thread, concurrently. stop() from one of
// the queue's own threads is allowed (that thread finishes its task and then ends).
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace korva::host::detail {

class TaskQueue {
  public:
    // threads: number of worker threads (at least 1). capacity: most tasks waiting at once
    // (0: unbounded). The threads start with the first post.
    TaskQueue(std::string name, size_t threads, size_t capacity);
    ~TaskQueue();
    TaskQueue(const TaskQueue&) = delete;
    TaskQueue& operator=(const TaskQueue&) = delete;

    // Queues a task. False when `capacity` tasks already wait (the task is dropped). Tasks start
    // in posting order; with one thread they also finish in that order. A task must not throw.
    bool post(std::function<void()> task);

    // Blocks until every task posted before the call has finished. Only for a queue of one
    // thread (where finishing follows posting order). Returns at once when called from the
    // queue's own thread (waiting there could never end) or when stop() drops the tasks.
    void flush();

    // Ends the threads and drops the tasks still waiting. A later post starts new threads.
    void stop();

    // True on one of this queue's threads.
    bool onQueueThread() const;

  private:
    struct Run;  // one thread pool, from the first post until stop

    std::shared_ptr<Run> runLocked();

    const std::string m_name;
    const size_t m_threadCount;
    const size_t m_capacity;

    mutable std::mutex m_mutex;  // guards m_run (the pointer)
    std::shared_ptr<Run> m_run;
};

}  // namespace korva::host::detail
