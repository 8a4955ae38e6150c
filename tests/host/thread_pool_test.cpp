// The flexible thread pool.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <thread>

#include "host/kvl_thread_pool.h"

namespace {

struct Counters {
    std::atomic<int> done{0};
    std::atomic<int> running{0};
    std::atomic<int> maxRunning{0};
    std::atomic<size_t> stackSize{0};
    std::chrono::milliseconds work{0};
};

struct Item {
    Counters* counters;
};

int work(void* raw) {
    Counters* c = static_cast<Item*>(raw)->counters;
    delete static_cast<Item*>(raw);  // the item belongs to the routine
    const int now = ++c->running;
    int seen = c->maxRunning.load();
    while (now > seen && !c->maxRunning.compare_exchange_weak(seen, now)) {
    }
    pthread_attr_t attr;
    if (pthread_getattr_np(pthread_self(), &attr) == 0) {
        size_t size = 0;
        pthread_attr_getstacksize(&attr, &size);
        c->stackSize = size;
        pthread_attr_destroy(&attr);
    }
    std::this_thread::sleep_for(c->work);
    --c->running;
    ++c->done;
    return 0;
}

bool waitFor(const std::atomic<int>& value, int expected) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (value.load() != expected && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return value.load() == expected;
}

}  // namespace

TEST(ThreadPool, RunsEveryItemWithAtMostMaxThreads) {
    Counters c;
    c.work = std::chrono::milliseconds(2);
    KVL_HThreadPoolFlex pool = KVL_ThreadPoolFlex_Create(3, 1000, work, 0x40000);
    ASSERT_NE(pool, nullptr);
    for (int i = 0; i < 60; ++i) ASSERT_EQ(KVL_ThreadPoolFlex_Work(pool, new Item{&c}), 0);
    EXPECT_TRUE(waitFor(c.done, 60));
    EXPECT_LE(c.maxRunning.load(), 3);
    EXPECT_GE(c.maxRunning.load(), 2);  // work was spread over several workers
    EXPECT_GE(c.stackSize.load(), 0x40000u);
    // The requested size (sanitizers add some), not the 8 MiB default.
    EXPECT_LT(c.stackSize.load(), 0x200000u);
    EXPECT_EQ(KVL_ThreadPoolFlex_Destroy(pool), 0);
}

TEST(ThreadPool, DestroyRunsPendingWorkAndNullPoolsAreRefused) {
    Counters c;
    c.work = std::chrono::milliseconds(5);
    KVL_HThreadPoolFlex pool = KVL_ThreadPoolFlex_Create(2, 1000, work, 0);
    ASSERT_NE(pool, nullptr);
    for (int i = 0; i < 20; ++i) ASSERT_EQ(KVL_ThreadPoolFlex_Work(pool, new Item{&c}), 0);
    EXPECT_EQ(KVL_ThreadPoolFlex_Destroy(pool), 0);
    EXPECT_EQ(c.done.load(), 20);
    EXPECT_EQ(c.running.load(), 0);

    EXPECT_EQ(KVL_ThreadPoolFlex_Work(nullptr, nullptr), -1);
    EXPECT_EQ(KVL_ThreadPoolFlex_Destroy(nullptr), -1);
    EXPECT_EQ(KVL_ThreadPoolFlex_Create(0, 100, work, 0), nullptr);
    EXPECT_EQ(KVL_ThreadPoolFlex_Create(1, 100, nullptr, 0), nullptr);
}

// Threads of this process (each test runs in a process of its own).
size_t threadCount() {
    size_t count = 0;
    for ([[maybe_unused]] const auto& entry :
         std::filesystem::directory_iterator("/proc/self/task")) {
        ++count;
    }
    return count;
}

TEST(ThreadPool, IdleWorkersEndAndNewOnesStartOnDemand) {
    // ThreadSanitizer starts a thread of its own when the process makes its first one: make one
    // first, so that the baseline includes it.
    std::thread([] {}).join();
    const size_t before = threadCount();
    Counters c;
    c.work = std::chrono::milliseconds(30);
    KVL_HThreadPoolFlex pool = KVL_ThreadPoolFlex_Create(4, 50, work, 0);
    ASSERT_NE(pool, nullptr);
    for (int i = 0; i < 4; ++i) ASSERT_EQ(KVL_ThreadPoolFlex_Work(pool, new Item{&c}), 0);
    EXPECT_TRUE(waitFor(c.running, 4));
    EXPECT_EQ(threadCount(), before + 4);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (threadCount() != before && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(threadCount(), before);  // every worker ended after idling 50 ms
    ASSERT_EQ(KVL_ThreadPoolFlex_Work(pool, new Item{&c}), 0);
    EXPECT_TRUE(waitFor(c.done, 5));  // a new worker started for it
    EXPECT_EQ(KVL_ThreadPoolFlex_Destroy(pool), 0);
}

namespace {
struct Chain {
    KVL_HThreadPoolFlex pool = nullptr;
    std::atomic<int> left{0};
};
int requeue(void* raw) {
    auto* chain = static_cast<Chain*>(raw);
    if (--chain->left > 0) {
        EXPECT_EQ(KVL_ThreadPoolFlex_Work(chain->pool, chain), 0);
    }
    return 0;
}
}  // namespace

TEST(ThreadPool, WorkersMayQueueMoreWork) {
    Chain chain;
    chain.left = 50;
    chain.pool = KVL_ThreadPoolFlex_Create(1, 1000, requeue, 0);
    ASSERT_NE(chain.pool, nullptr);
    ASSERT_EQ(KVL_ThreadPoolFlex_Work(chain.pool, &chain), 0);
    EXPECT_TRUE(waitFor(chain.left, 0));
    EXPECT_EQ(KVL_ThreadPoolFlex_Destroy(chain.pool), 0);
}
