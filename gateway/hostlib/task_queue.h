// A FIFO of tasks run by a fixed number of threads: the host's bus workers, the alarm delivery
// thread and the device notification thread are each one TaskQueue.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace korva::host::detail {

class TaskQueue {
  public:
    // threads: number of worker threads (at least 1). capacity: most tasks waiting at once
    // (0: unbounded). The threads start with the first post.
    TaskQueue(std::string name, size_t threads, size_t capacity);
    ~TaskQueue();
    TaskQueue(const TaskQueue&) = delete;
    TaskQueue& operator=(const TaskQueue&) = delete;

    // Queues a task. False when the queue is full (the task is dropped). Tasks run in posting
    // order; with one thread they also finish in that order. A task must not throw.
    bool post(std::function<void()> task);

    // Blocks until every task posted before the call has finished. Returns at once when called
    // from one of the queue's own threads (waiting there could never end).
    void flush();

    // Joins the threads and drops the tasks still waiting. A later post starts new threads.
    // Called from one of the queue's own threads, that thread is detached instead of joined.
    void stop();

    // True on one of this queue's threads.
    bool onQueueThread() const;

  private:
    struct Entry {
        uint64_t seq;
        std::function<void()> task;
    };

    void startLocked();
    void run(uint64_t generation);
    bool doneUpToLocked(uint64_t seq) const;

    const std::string m_name;
    const size_t m_threadCount;
    const size_t m_capacity;

    mutable std::mutex m_mutex;
    std::condition_variable m_wake;      // tasks queued or stop requested
    std::condition_variable m_finished;  // a task finished or the queue was emptied
    std::deque<Entry> m_tasks;
    std::multiset<uint64_t> m_running;  // sequence numbers of tasks being run
    std::vector<std::thread> m_threads;
    uint64_t m_nextSeq = 1;
    uint64_t m_generation = 0;  // bumped by stop; threads of an older generation leave
};

}  // namespace korva::host::detail
