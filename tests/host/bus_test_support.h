// Recorders shared by the host bus tests: they capture what the host's threads hand to a
// plug-in's routines and let a test wait for it.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host/device_cfg_bus.h"

namespace korva::testing {

using namespace std::chrono_literals;

// Collects calls of a routine made on other threads.
template <typename Call>
class CallLog {
  public:
    void add(Call call) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_calls.push_back(std::move(call));
        m_changed.notify_all();
    }
    bool waitFor(size_t n, std::chrono::milliseconds timeout = 5s) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, timeout, [&] { return m_calls.size() >= n; });
    }
    std::vector<Call> calls() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_calls;
    }
    size_t size() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_calls.size();
    }

  private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Call> m_calls;
};

// The body of a routine that stays inside its call for a while, so that a test can end the
// routine's registration while it runs.
struct SlowRoutine {
    std::atomic<int> calls{0};
    std::atomic<bool> inside{false};

    void run() {
        inside = true;
        calls.fetch_add(1);
        std::this_thread::sleep_for(150ms);
        inside = false;
    }
    void waitUntilEntered() const {
        while (calls == 0) std::this_thread::sleep_for(1ms);
    }
};

// One completion of a relay: the bytes and the thread that delivered them.
struct Completion {
    std::string bytes;
    std::thread::id thread;
};

// The userData of a relay in the bus tests: the DeviceCfgContext the bus reads (httpHandle -1:
// no request behind it), carrying the log of its completions in `handler`.
struct RelayProbe {
    explicit RelayProbe(int httpHandle = -1) : context{httpHandle, 0, nullptr, &log} {}
    RelayProbe(const RelayProbe&) = delete;
    RelayProbe& operator=(const RelayProbe&) = delete;

    CallLog<Completion> log;
    DeviceCfgContext context;
};

// A QX_DeviceCfgCallBack whose userData is the context of a RelayProbe.
inline int recordCompletion(const char* data, int length, void* userData) {
    static_cast<CallLog<Completion>*>(static_cast<DeviceCfgContext*>(userData)->handler)
        ->add(
            Completion{std::string(data, static_cast<size_t>(length)), std::this_thread::get_id()});
    return 0;
}

}  // namespace korva::testing
