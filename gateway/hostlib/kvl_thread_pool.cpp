// Flexible thread pool: workers started on demand up to maxThreads, each ending after
// idleTimeoutMs without work. Workers are pthreads so that the stack size can be chosen.
#include "host/kvl_thread_pool.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <new>
#include <vector>

#include "host/kvl_runtime.h"

namespace {

struct Pool {
    uint32_t maxThreads = 1;
    std::chrono::milliseconds idleTimeout{0};
    KVL_ThreadPoolWorkRoutine routine = nullptr;
    size_t stackSize = 0;  // 0 = system default

    std::mutex mutex;
    std::condition_variable workAvailable;  // a queued item or the stop request
    std::condition_variable workerEnded;
    std::deque<void*> queue;
    uint32_t alive = 0;  // started workers that have not ended
    uint32_t idle = 0;   // workers waiting for work
    bool stopping = false;
    std::vector<pthread_t> ended;  // ended workers not yet joined
};

void* workerMain(void* arg) {
    Pool* pool = static_cast<Pool*>(arg);
    std::unique_lock<std::mutex> lock(pool->mutex);
    for (;;) {
        if (!pool->queue.empty()) {
            void* item = pool->queue.front();
            pool->queue.pop_front();
            lock.unlock();
            pool->routine(item);
            lock.lock();
            continue;
        }
        if (pool->stopping) break;
        ++pool->idle;
        const bool woken = pool->workAvailable.wait_for(
            lock, pool->idleTimeout, [&] { return !pool->queue.empty() || pool->stopping; });
        --pool->idle;
        if (!woken) break;  // idle for the whole timeout
    }
    // The pool may be freed once alive reaches 0: nothing touches it after the unlock.
    pool->ended.push_back(pthread_self());
    --pool->alive;
    pool->workerEnded.notify_all();
    return nullptr;
}

// Joins the workers that have ended (mutex held; they no longer take it).
void joinEnded(Pool* pool) {
    for (pthread_t thread : pool->ended) pthread_join(thread, nullptr);
    pool->ended.clear();
}

// Starts one worker (mutex held). Returns 0 or an errno value.
int startWorker(Pool* pool) {
    pthread_attr_t attr;
    int rc = pthread_attr_init(&attr);
    if (rc != 0) return rc;
    if (pool->stackSize != 0) {
        size_t size = pool->stackSize;
        const auto minimum = static_cast<size_t>(PTHREAD_STACK_MIN);  // a long on glibc
        if (size < minimum) size = minimum;
        const long page = sysconf(_SC_PAGESIZE);
        if (page > 0) {
            const size_t pageSize = static_cast<size_t>(page);
            size = (size + pageSize - 1) / pageSize * pageSize;
        }
        rc = pthread_attr_setstacksize(&attr, size);
    }
    pthread_t thread;
    if (rc == 0) rc = pthread_create(&thread, &attr, workerMain, pool);
    pthread_attr_destroy(&attr);
    if (rc == 0) ++pool->alive;
    return rc;
}

}  // namespace

KVL_HThreadPoolFlex KVL_ThreadPoolFlex_Create(uint32_t maxThreads, uint32_t idleTimeoutMs,
                                              KVL_ThreadPoolWorkRoutine routine,
                                              uint32_t stackSize) {
    if (maxThreads == 0 || routine == nullptr) {
        KVL_SetLastError(EINVAL);
        return nullptr;
    }
    Pool* pool = new (std::nothrow) Pool;
    if (pool == nullptr) {
        KVL_SetLastError(ENOMEM);
        return nullptr;
    }
    pool->maxThreads = maxThreads;
    pool->idleTimeout = std::chrono::milliseconds(idleTimeoutMs);
    pool->routine = routine;
    pool->stackSize = stackSize;
    return pool;
}

int KVL_ThreadPoolFlex_Work(KVL_HThreadPoolFlex handle, void* item) {
    if (handle == nullptr) {
        KVL_SetLastError(EINVAL);
        return -1;
    }
    Pool* pool = static_cast<Pool*>(handle);
    std::lock_guard<std::mutex> lock(pool->mutex);
    if (pool->stopping) {
        KVL_SetLastError(ESHUTDOWN);
        return -1;
    }
    joinEnded(pool);
    try {
        pool->queue.push_back(item);
    } catch (const std::bad_alloc&) {
        KVL_SetLastError(ENOMEM);
        return -1;
    }
    // Start a worker when the idle ones cannot take every queued item.
    if (pool->queue.size() > pool->idle && pool->alive < pool->maxThreads) {
        const int rc = startWorker(pool);
        if (rc != 0 && pool->alive == 0) {
            pool->queue.pop_back();  // nobody would run it: the item stays with the caller
            KVL_SetLastError(rc);
            return -1;
        }
    }
    pool->workAvailable.notify_one();
    return 0;
}

int KVL_ThreadPoolFlex_Destroy(KVL_HThreadPoolFlex handle) {
    if (handle == nullptr) {
        KVL_SetLastError(EINVAL);
        return -1;
    }
    Pool* pool = static_cast<Pool*>(handle);
    {
        std::unique_lock<std::mutex> lock(pool->mutex);
        pool->stopping = true;
        pool->workAvailable.notify_all();
        // Workers drain the queue before they end.
        pool->workerEnded.wait(lock, [&] { return pool->alive == 0; });
        joinEnded(pool);
    }
    // Nothing should be left; should it be (no worker could ever start), run it here.
    for (void* item : pool->queue) pool->routine(item);
    delete pool;
    return 0;
}
