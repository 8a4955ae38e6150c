// Runtime timers and the manual clock.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "gateway/hostlib/host_clock.h"
#include "gateway/hostlib/host_context.h"
#include "host/kvl_runtime.h"
#include "host/kvl_timer.h"

namespace {

std::vector<uint32_t> g_allTicks;  // every run of every Recorder, in run order

struct Recorder {
    uint32_t id = 0;
    std::vector<uint32_t> ticks;  // KVL_GetTimeTick() at every run
    bool idMatched = true;
    bool killInside = false;
};

int record(uint32_t timerId, void* user) {
    auto* r = static_cast<Recorder*>(user);
    r->idMatched = r->idMatched && timerId == r->id;
    r->ticks.push_back(KVL_GetTimeTick());
    g_allTicks.push_back(KVL_GetTimeTick());
    if (r->killInside) {
        EXPECT_EQ(KVL_KillTimer(timerId), 0);
    }
    return 0;
}

class ManualClock : public ::testing::Test {
  protected:
    void SetUp() override { korva::host::useManualClock(1000); }
    void TearDown() override {
        korva::host::detail::stopThreads(korva::host::detail::context().timers());
        korva::host::useRealClock();
    }
};

}  // namespace

TEST_F(ManualClock, AdvanceFiresEveryDuePeriodInTimeOrder) {
    Recorder fast;
    Recorder slow;
    g_allTicks.clear();
    ASSERT_EQ(KVL_SetTimer(record, &fast, 1000, &fast.id, 0), 0);
    ASSERT_EQ(KVL_SetTimer(record, &slow, 2500, &slow.id, 0), 0);
    EXPECT_NE(fast.id, slow.id);
    korva::host::advanceClock(999);
    EXPECT_TRUE(fast.ticks.empty());  // first run one period after the call
    korva::host::advanceClock(9001);  // 10 s in all
    EXPECT_EQ(fast.ticks, (std::vector<uint32_t>{2000, 3000, 4000, 5000, 6000, 7000, 8000, 9000,
                                                 10000, 11000}));
    EXPECT_EQ(slow.ticks, (std::vector<uint32_t>{3500, 6000, 8500, 11000}));
    EXPECT_TRUE(std::is_sorted(g_allTicks.begin(), g_allTicks.end()));
    EXPECT_EQ(g_allTicks.size(), 14u);
    EXPECT_TRUE(fast.idMatched && slow.idMatched);
    EXPECT_EQ(KVL_GetTimeTick(), 11000u);
    EXPECT_EQ(KVL_KillTimer(fast.id), 0);
    EXPECT_EQ(KVL_KillTimer(fast.id), -1);  // unknown now
    korva::host::advanceClock(5000);
    EXPECT_EQ(fast.ticks.size(), 10u);
    EXPECT_EQ(slow.ticks.size(), 6u);
}

TEST_F(ManualClock, TickWrapsAndTimersKeepTheirPeriod) {
    korva::host::useManualClock(0xFFFFFF00u);
    Recorder r;
    ASSERT_EQ(KVL_SetTimer(record, &r, 200, &r.id, 0), 0);
    korva::host::advanceClock(600);
    EXPECT_EQ(r.ticks, (std::vector<uint32_t>{0xFFFFFFC8u, 0x90u, 0x158u}));
    EXPECT_EQ(KVL_GetTimeTick(), 0x158u);
}

TEST_F(ManualClock, TimersEndOnKillFromTheirRoutineOrOnStopAndRefuseBadArguments) {
    Recorder r;
    r.killInside = true;
    ASSERT_EQ(KVL_SetTimer(record, &r, 100, &r.id, 0), 0);
    korva::host::advanceClock(1000);
    EXPECT_EQ(r.ticks.size(), 1u);
    EXPECT_EQ(KVL_KillTimer(r.id), -1);

    uint32_t id = 0;
    KVL_SetLastError(0);
    EXPECT_EQ(KVL_SetTimer(nullptr, nullptr, 100, &id, 0), -1);
    EXPECT_NE(KVL_GetLastError(), 0);
    EXPECT_EQ(KVL_SetTimer(record, nullptr, 0, &id, 0), -1);
    EXPECT_EQ(KVL_SetTimer(record, nullptr, 100, nullptr, 0), -1);
    EXPECT_EQ(KVL_KillTimer(0xFFFFFFFFu), -1);

    Recorder forgotten;  // stopping the runtime forgets every timer
    ASSERT_EQ(KVL_SetTimer(record, &forgotten, 100, &forgotten.id, 0), 0);
    korva::host::detail::stopThreads(korva::host::detail::context().timers());
    korva::host::advanceClock(1000);
    EXPECT_TRUE(forgotten.ticks.empty());
    EXPECT_EQ(KVL_KillTimer(forgotten.id), -1);
}

namespace {

struct Slow {
    std::atomic<int> runs{0};
    std::atomic<bool> inside{false};
    std::atomic<bool> overlapped{false};
};

int slowRoutine(uint32_t, void* user) {
    auto* s = static_cast<Slow*>(user);
    if (s->inside.exchange(true)) s->overlapped = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    s->inside = false;
    ++s->runs;
    return 0;
}

}  // namespace

TEST(RealClockTimer, KillWaitsForARunInProgressAndRunsNeverOverlap) {
    korva::host::useRealClock();
    Slow s;
    uint32_t id = 0;
    ASSERT_EQ(KVL_SetTimer(slowRoutine, &s, 5, &id, 0), 0);  // period shorter than a run
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!s.inside && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_TRUE(s.inside.load());
    ASSERT_EQ(KVL_KillTimer(id), 0);
    EXPECT_FALSE(s.inside.load());  // the run in progress had ended
    const int runs = s.runs;
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    EXPECT_EQ(s.runs.load(), runs);  // never again
    EXPECT_FALSE(s.overlapped.load());
    korva::host::detail::stopThreads(korva::host::detail::context().timers());
}

TEST(RealClockTimer, ManualClockTakesOverAndHandsBack) {
    korva::host::useRealClock();
    Recorder r;
    ASSERT_EQ(KVL_SetTimer(record, &r, 3600 * 1000, &r.id, 0), 0);  // due in an hour
    korva::host::useManualClock(0);
    korva::host::advanceClock(3600 * 1000);  // the same deadline under the manual clock
    EXPECT_EQ(r.ticks.size(), 1u);
    korva::host::useRealClock();
    EXPECT_EQ(KVL_KillTimer(r.id), 0);
    korva::host::detail::stopThreads(korva::host::detail::context().timers());
}
