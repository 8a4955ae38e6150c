// Runtime library: string helpers, atomics, last errors, locks and the exported support classes.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <thread>
#include <vector>

#include "host/kvl_mutex.h"
#include "host/kvl_runtime.h"
#include "host/rw_lock.h"
#include "host/sqlite3_do.h"

TEST(Runtime, StrcmpTreatsNullAsEmpty) {
    EXPECT_EQ(KVL_Strcmp(nullptr, ""), 0);
    EXPECT_LT(KVL_Strcmp(nullptr, "a"), 0);
    EXPECT_GT(KVL_Strcmp("a", nullptr), 0);
    EXPECT_NE(KVL_Strcmp("/KORVA", "/korva"), 0);
}

TEST(Runtime, ItoaAndAtoi32) {
    struct ItoaCase {
        int value;
        int radix;
        const char* text;
    };
    const ItoaCase itoa[] = {
        {0, 10, "0"},
        {-17, 10, "-17"},
        {INT_MAX, 10, "2147483647"},
        {INT_MIN, 10, "-2147483648"},
        {-1, 16, "ffffffff"},
        {35, 36, "z"},
        {INT_MIN, 2, "10000000000000000000000000000000"},
    };
    for (const ItoaCase& c : itoa) {
        char buffer[34];
        std::memset(buffer, '#', sizeof buffer);
        EXPECT_EQ(KVL_Itoa(c.value, buffer, c.radix), buffer);
        EXPECT_STREQ(buffer, c.text) << c.value << " radix " << c.radix;
    }
    char buffer[34] = "x";
    KVL_Itoa(5, buffer, 1);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(KVL_Itoa(5, nullptr, 10), nullptr);

    const std::pair<const char*, int32_t> atoi[] = {
        {"  \t-7x", -7},
        {"+15", 15},
        {"", 0},
        {"-", 0},
        {"2147483648", INT32_MAX},
        {"-2147483648", INT32_MIN},
        {"-99999999999999999999", INT32_MIN},
        {"1 2", 1},
        {nullptr, 0},
    };
    for (const auto& [text, value] : atoi) EXPECT_EQ(KVL_Atoi32(text), value) << text;
}

TEST(Runtime, AtomicsAndPerThreadLastError) {
    volatile int32_t counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 10000; ++i) {
                KVL_AtomicInc(&counter);
                KVL_AtomicInc(&counter);
                KVL_AtomicDec(&counter);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(KVL_AtomicInc(&counter), 40001);

    KVL_SetLastError(11);
    std::thread([] {
        EXPECT_EQ(KVL_GetLastError(), 0);
        KVL_SetLastError(22);
    }).join();
    EXPECT_EQ(KVL_GetLastError(), 11);
    errno = EPIPE;
    EXPECT_EQ(KVL_GetSystemLastError(), EPIPE);
}

TEST(Runtime, PlainMutexRefusesRelockRecursiveOneAllowsIt) {
    KVL_Mutex mutex;
    ASSERT_EQ(mutex.Lock(), 0);
    EXPECT_NE(mutex.Lock(), 0);  // relocking by the owner is reported, not a deadlock
    EXPECT_EQ(mutex.Unlock(), 0);

    kvl::kvl_recursive_mutex recursive;
    ASSERT_EQ(recursive.Lock(), 0);
    ASSERT_EQ(recursive.Lock(), 0);
    EXPECT_EQ(recursive.Unlock(), 0);
    EXPECT_EQ(recursive.Unlock(), 0);
    kvl::kvl_recursive_mutex copy(recursive);  // member-wise copy of an unlocked mutex
    ASSERT_EQ(copy.Lock(), 0);
    EXPECT_EQ(copy.Unlock(), 0);
    delete[] new kvl::kvl_recursive_mutex[2];  // virtual destructor, vector form
}

TEST(Runtime, GuardLocksUntilReleased) {
    KVL_Mutex mutex;
    int shared = 0;
    {
        KVL_Guard guard(&mutex);
        std::thread other([&] {
            KVL_Guard inner(&mutex);
            EXPECT_EQ(shared, 1);  // ran only after the first guard released
            shared = 2;
        });
        shared = 1;
        guard.Release();
        guard.Release();  // a second release is harmless
        other.join();
    }
    EXPECT_EQ(shared, 2);
    KVL_Guard none(nullptr);
    KVL_Guard zeroed(&mutex);
    zeroed.__autoclassinit2(sizeof zeroed);  // forgets the mutex without unlocking it
    EXPECT_NE(mutex.Lock(), 0);              // still held by this thread
    EXPECT_EQ(mutex.Unlock(), 0);
}

TEST(Runtime, ReaderWriterLock) {
    QXBase::CRWLock lock;
    int value = 0;
    std::thread writer;
    {
        QXBase::CReadLockGuard reader(lock);
        QXBase::CReadLockGuard second(lock);  // readers share
        writer = std::thread([&] {
            QXBase::CWriteLockGuard w(lock);
            value = 1;
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(value, 0);  // the writer waits for the readers
    }
    writer.join();
    EXPECT_EQ(value, 1);
}

TEST(SupportClasses, RecordsetIndexBoundsAndZeroFill) {
    int db = 0;
    int stmt = 0;
    EXPECT_FALSE(Sqlite3DO::CSQLite3Recordset(&db, nullptr, 3, false).IsAttach());
    Sqlite3DO::CSQLite3Recordset set(&db, &stmt, 3, false);
    EXPECT_TRUE(set.IsAttach());
    EXPECT_FALSE(set.IsValidIndex(-1));
    EXPECT_TRUE(set.IsValidIndex(2));
    EXPECT_FALSE(set.IsValidIndex(3));
    set.__autoclassinit2(sizeof set);
    EXPECT_FALSE(set.IsAttach());
    EXPECT_FALSE(set.IsEOF());  // zero-filled flag
    EXPECT_EQ(set.GetFieldCount(), 0);
}
