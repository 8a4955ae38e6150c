// Periodic timers on one timer thread, the runtime clocks, and the manual clock for tests.
//
// Deadlines live on the 64-bit monotonic clock of runtime_clock.h. With the real clock the timer
// thread sleeps until the earliest deadline; with the manual clock the timer thread idles and
// advanceClock() runs the due timers on its caller's thread, stepping the clock to each deadline.
// A running timer is out of the deadline queue, so one timer never runs twice at once.
#include "host/kvl_timer.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <unordered_map>
#include <utility>

#include "gateway/hostlib/host_clock.h"
#include "gateway/hostlib/host_context.h"
#include "gateway/hostlib/runtime_clock.h"
#include "host/kvl_runtime.h"

namespace {

uint64_t steadyMs() {
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                     std::chrono::steady_clock::now().time_since_epoch())
                                     .count());
}

struct Timer {
    uint32_t id = 0;
    KVL_TimerRoutine routine = nullptr;
    void* user = nullptr;
    uint32_t period = 0;
    uint64_t due = 0;
    bool running = false;
    bool killed = false;
    std::thread::id runner;
};

}  // namespace

namespace korva::host::detail {

// The timers, the clocks and the timer thread (mutex guards all but the atomics).
class TimerService {
  public:
    std::mutex mutex;
    std::condition_variable wake;     // the timer thread: queue, clock mode or stop changed
    std::condition_variable runDone;  // a run ended
    std::unordered_map<uint32_t, std::shared_ptr<Timer>> timers;
    std::set<std::pair<uint64_t, uint32_t>> queue;  // (due, id) of every timer not running
    uint32_t nextId = 1;

    std::thread thread;
    std::thread::id threadId;
    bool stopping = false;

    // Manual clock (guarded by mutex; mirrored into the atomics for lock-free reads).
    bool manual = false;
    uint64_t manualMono = 0;      // current value of the monotonic clock
    uint64_t manualMonoBase = 0;  // monotonic value when the manual tick was set
    uint32_t manualTickBase = 0;  // the tick at manualMonoBase

    std::atomic<bool> manualFlag{false};
    std::atomic<uint32_t> manualTick{0};
    std::atomic<uint64_t> manualMonoPublished{0};
    std::atomic<int64_t> realOffset{0};  // added to the steady clock so it never goes backwards
};

template struct PartDeleter<TimerService>;
template Owned<TimerService> makePart<TimerService>();

}  // namespace korva::host::detail

namespace {

using TimerState = korva::host::detail::TimerService;

TimerState& state() {
    return korva::host::detail::context().timers();
}

uint64_t realMono(TimerState& s) {
    return steadyMs() + static_cast<uint64_t>(s.realOffset.load(std::memory_order_relaxed));
}

// Publishes the manual clock after manualMono changed (mutex held).
void publishManual(TimerState& s) {
    s.manualTick.store(s.manualTickBase + static_cast<uint32_t>(s.manualMono - s.manualMonoBase),
                       std::memory_order_relaxed);
    s.manualMonoPublished.store(s.manualMono, std::memory_order_relaxed);
}

uint64_t nowLocked(TimerState& s) {
    return s.manual ? s.manualMono : realMono(s);
}

// True when some timer runs on another thread than the caller (mutex held).
bool otherRunInProgress(TimerState& s) {
    const auto me = std::this_thread::get_id();
    return std::any_of(s.timers.begin(), s.timers.end(), [&](const auto& entry) {
        return entry.second->running && entry.second->runner != me;
    });
}

// Runs the first queued timer (which must be due) with the mutex released, then requeues it.
void runFirst(TimerState& s, std::unique_lock<std::mutex>& lock) {
    auto first = *s.queue.begin();
    s.queue.erase(s.queue.begin());
    std::shared_ptr<Timer> timer = s.timers.at(first.second);
    timer->running = true;
    timer->runner = std::this_thread::get_id();
    lock.unlock();
    timer->routine(timer->id, timer->user);
    lock.lock();
    timer->running = false;
    timer->runner = std::thread::id();
    if (!timer->killed) {
        timer->due += timer->period;
        if (!s.manual) {
            // A run that overran whole periods does not cause a burst of catch-up runs.
            const uint64_t now = realMono(s);
            if (timer->due <= now) timer->due = now + timer->period;
        }
        s.queue.emplace(timer->due, timer->id);
    }
    s.runDone.notify_all();
    s.wake.notify_all();
}

void timerThreadMain(TimerState& s) {
    std::unique_lock<std::mutex> lock(s.mutex);
    while (!s.stopping) {
        if (s.manual || s.queue.empty()) {
            s.wake.wait(lock);
            continue;
        }
        const uint64_t due = s.queue.begin()->first;
        const uint64_t now = realMono(s);
        if (due > now) {
            s.wake.wait_for(lock, std::chrono::milliseconds(due - now));
            continue;
        }
        runFirst(s, lock);
    }
}

// Starts the timer thread when it is not running (mutex held). False when it cannot start.
bool ensureThread(TimerState& s) {
    if (s.thread.joinable()) return true;
    try {
        s.thread = std::thread([&s] { timerThreadMain(s); });
        s.threadId = s.thread.get_id();
        return true;
    } catch (...) {
        return false;
    }
}

}  // namespace

namespace korva::host::detail {

uint32_t tickNow() {
    TimerState& s = state();
    if (s.manualFlag.load(std::memory_order_acquire)) {
        return s.manualTick.load(std::memory_order_relaxed);
    }
    return static_cast<uint32_t>(steadyMs());
}

uint64_t monotonicMs() {
    TimerState& s = state();
    if (s.manualFlag.load(std::memory_order_acquire)) {
        return s.manualMonoPublished.load(std::memory_order_relaxed);
    }
    return realMono(s);
}

void stopThreads(TimerService& s) {
    std::thread thread;
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        s.stopping = true;
        s.wake.notify_all();
        thread = std::move(s.thread);
    }
    if (thread.joinable()) {
        if (thread.get_id() == std::this_thread::get_id()) {
            thread.detach();  // called from a timer routine: the thread ends after it returns
        } else {
            thread.join();
        }
    }
    std::lock_guard<std::mutex> lock(s.mutex);
    for (auto& entry : s.timers) entry.second->killed = true;
    s.timers.clear();
    s.queue.clear();
    s.stopping = false;
    s.threadId = std::thread::id();
    s.runDone.notify_all();
}

}  // namespace korva::host::detail

int KVL_SetTimer(KVL_TimerRoutine routine, void* user, uint32_t periodMs, uint32_t* timerId,
                 int flags) {
    (void)flags;
    if (routine == nullptr || periodMs == 0 || timerId == nullptr) {
        KVL_SetLastError(EINVAL);
        return -1;
    }
    TimerState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.timers.size() >= 0xFFFF0000u) {
        KVL_SetLastError(EAGAIN);
        return -1;
    }
    auto timer = std::make_shared<Timer>();
    // Ids 0 and 0xFFFFFFFF are never handed out (callers use them as "no timer").
    uint32_t id = s.nextId;
    while (id == 0 || id == 0xFFFFFFFFu || s.timers.count(id) != 0) ++id;
    s.nextId = id + 1;
    timer->id = id;
    timer->routine = routine;
    timer->user = user;
    timer->period = periodMs;
    timer->due = nowLocked(s) + periodMs;
    if (!ensureThread(s)) {
        KVL_SetLastError(EAGAIN);
        return -1;
    }
    // Written under the timer mutex, which the runner takes before it starts the routine.
    *timerId = id;
    s.timers.emplace(id, timer);
    s.queue.emplace(timer->due, id);
    s.wake.notify_all();
    return 0;
}

int KVL_KillTimer(uint32_t timerId) {
    TimerState& s = state();
    std::unique_lock<std::mutex> lock(s.mutex);
    auto it = s.timers.find(timerId);
    if (it == s.timers.end()) {
        KVL_SetLastError(EINVAL);
        return -1;
    }
    std::shared_ptr<Timer> timer = it->second;
    s.timers.erase(it);
    s.queue.erase({timer->due, timer->id});
    timer->killed = true;
    s.wake.notify_all();
    // From inside its own routine the kill only cancels; from elsewhere it waits for the run.
    if (timer->running && timer->runner != std::this_thread::get_id()) {
        s.runDone.wait(lock, [&] { return !timer->running; });
    }
    return 0;
}

namespace korva::host {

void useManualClock(uint32_t start) {
    TimerState& s = state();
    std::unique_lock<std::mutex> lock(s.mutex);
    // A run the timer thread has begun finishes first, so no timer runs on two threads.
    s.runDone.wait(lock, [&] { return !otherRunInProgress(s); });
    if (!s.manual) s.manualMono = realMono(s);
    s.manualMonoBase = s.manualMono;
    s.manualTickBase = start;
    publishManual(s);
    s.manual = true;
    s.manualFlag.store(true, std::memory_order_release);
    s.wake.notify_all();
}

void advanceClock(uint32_t ms) {
    TimerState& s = state();
    std::unique_lock<std::mutex> lock(s.mutex);
    if (!s.manual) return;
    const uint64_t target = s.manualMono + ms;
    for (;;) {
        if (!s.manual) return;  // switched back to the real clock by a routine
        if (!s.queue.empty() && s.queue.begin()->first <= target) {
            s.manualMono = std::max(s.manualMono, s.queue.begin()->first);
            publishManual(s);
            runFirst(s, lock);
            continue;
        }
        if (otherRunInProgress(s)) {
            // Its next period may fall inside this advance: wait until it is queued again.
            s.runDone.wait(lock);
            continue;
        }
        break;
    }
    s.manualMono = std::max(s.manualMono, target);
    publishManual(s);
}

void useRealClock() {
    TimerState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (!s.manual) return;
    // Keep the monotonic clock from going backwards when the manual clock ran ahead.
    const int64_t needed = static_cast<int64_t>(s.manualMono - steadyMs());
    if (needed > s.realOffset.load()) s.realOffset.store(needed);
    s.manual = false;
    s.manualFlag.store(false, std::memory_order_release);
    s.wake.notify_all();
}

}  // namespace korva::host
