// The device configuration bus: exactly one completion per accepted relay, on a bus thread,
// with the device's reply or the device-busy status after the timeout.
#include "host/device_cfg_bus.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>

#include "gateway/hostlib/host_control.h"
#include "gateway/testing/harness.h"
#include "host/device_mgr.h"
#include "tests/host/bus_test_support.h"

namespace korva::testing {
namespace {

using Mode = ScriptedDevice::Mode;

constexpr char kDeviceBusy[] =
    R"({"errorCode":536870916,"errorMsg":"deviceBusy","statusCode":2,"statusString":"Device Busy"})";
constexpr char kUrl[] = "/KORVA/System/deviceInfo?format=json&devIndex=dev-1";

class DeviceCfgBusTest : public ::testing::Test {
  protected:
    int relay(const std::string& url, CallLog<Completion>* log, int timeoutMs = 2000,
              int method = 0, const std::string& body = {}) {
        return QX_DeviceCfgBus_ProcessAsyn(method, url, body, recordCompletion, log, timeoutMs);
    }

    HostFixture m_host;
    ScriptedDevice& m_device = *m_host.device();
};

TEST_F(DeviceCfgBusTest, CompletesExactlyOnceOnABusThreadInEveryDeviceMode) {
    struct Case {
        Mode mode;
        int timeoutMs;
        std::string expected;
    };
    const Case cases[] = {
        {Mode::kImmediate, 300, R"({"DeviceInfo":{}})"},
        {Mode::kDeferred, 300, R"({"later":true})"},
        {Mode::kSilent, 100, kDeviceBusy},
        {Mode::kSilent, 0, kDeviceBusy},  // an immediate timeout still completes on the bus
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.mode));
        m_device.setMode(c.mode);
        m_device.setDefaultAnswer(R"({"DeviceInfo":{}})");
        CallLog<Completion> log;
        const size_t before = m_device.requests().size();
        const auto started = std::chrono::steady_clock::now();
        ASSERT_EQ(0, relay(kUrl, &log, c.timeoutMs));
        if (c.mode == Mode::kDeferred) {
            ASSERT_TRUE(m_device.waitForRequests(before + 1));
            ASSERT_TRUE(m_device.replyPending(0, c.expected));
        }
        ASSERT_TRUE(log.waitFor(1));
        EXPECT_EQ(c.expected, log.calls()[0].bytes);
        EXPECT_NE(std::this_thread::get_id(), log.calls()[0].thread);
        if (c.mode == Mode::kSilent) {
            EXPECT_GE(std::chrono::steady_clock::now() - started,
                      std::chrono::milliseconds(c.timeoutMs));
        }
        // Past the timeout no second call may come.
        std::this_thread::sleep_until(started + std::chrono::milliseconds(c.timeoutMs + 100));
        EXPECT_EQ(1u, log.size());
    }
}

TEST_F(DeviceCfgBusTest, ReplyAfterTimeoutIsDropped) {
    LogCapture logs(1);
    m_device.setMode(Mode::kDeferred);
    CallLog<Completion> log;
    ASSERT_EQ(0, relay(kUrl, &log, 50));
    ASSERT_TRUE(log.waitFor(1));
    EXPECT_EQ(kDeviceBusy, log.calls()[0].bytes);
    EXPECT_TRUE(m_device.replyPending(0, "{}"));
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(1u, log.size());
    EXPECT_TRUE(logs.contains("late reply of device dev-1 dropped", 2));
}

TEST_F(DeviceCfgBusTest, HandsTheDeviceThePartsOfTheRequest) {
    CallLog<Completion> log;
    const std::string url = "/KORVA/Streaming/channels/101?format=json&devIndex=dev-1&x=1";
    ASSERT_EQ(0, relay(url, &log, 2000, 1, R"({"a":1})"));
    ASSERT_TRUE(log.waitFor(1));
    const auto requests = m_device.requests();
    ASSERT_EQ(1u, requests.size());
    EXPECT_EQ(1, requests[0].method);
    EXPECT_EQ("/KORVA/Streaming/channels/101", requests[0].path);
    EXPECT_EQ(url, requests[0].url);
    EXPECT_EQ("dev-1", requests[0].devIndex);
    EXPECT_EQ(R"({"a":1})", requests[0].body);
}

TEST_F(DeviceCfgBusTest, RefusesBadRequestsWithoutCallingBack) {
    CallLog<Completion> log;
    auto refused = [&](int method, const std::string& url, int timeoutMs = 100,
                       QX_DeviceCfgCallBack callback = recordCompletion) {
        return QX_DeviceCfgBus_ProcessAsyn(method, url, "", callback, &log, timeoutMs);
    };
    EXPECT_EQ(1, refused(0, kUrl, 100, nullptr));
    EXPECT_EQ(1, refused(0, kUrl, -1));
    EXPECT_EQ(1, refused(7, kUrl));  // unknown method
    for (const char* url : {"/KORVA/System/deviceInfo", "/KORVA/System/deviceInfo?format=json",
                            "/x?devIndex=", "/x?format=json&mydevIndex=dev-1"}) {
        EXPECT_EQ(1, refused(0, url)) << url;
    }
    EXPECT_EQ(9, refused(0, "/x?format=json&devIndex=dev-2"));  // unknown device
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(0u, log.size());
    EXPECT_TRUE(m_device.requests().empty());
}

TEST_F(DeviceCfgBusTest, DetachHidesTheDeviceAndDropsItsReplies) {
    m_device.setMode(Mode::kDeferred);
    CallLog<Completion> pending;
    ASSERT_EQ(0, relay(kUrl, &pending, 100));
    ASSERT_TRUE(m_device.waitForRequests(1));

    ASSERT_TRUE(korva::host::detachDevice("dev-1"));
    CallLog<Completion> refused;
    EXPECT_EQ(9, relay(kUrl, &refused));

    // The device answers after it went away: the caller still gets exactly one answer, the
    // busy status, once the timeout is over.
    EXPECT_TRUE(m_device.replyPending(0, R"({"stale":true})"));
    ASSERT_TRUE(pending.waitFor(1));
    EXPECT_EQ(kDeviceBusy, pending.calls()[0].bytes);

    ASSERT_TRUE(korva::host::reattachDevice("dev-1"));
    m_device.setMode(Mode::kImmediate);
    CallLog<Completion> again;
    EXPECT_EQ(0, relay(kUrl, &again));
    ASSERT_TRUE(again.waitFor(1));
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(0u, refused.size());
    EXPECT_EQ(1u, pending.size());
}

TEST_F(DeviceCfgBusTest, ConcurrentRelaysEachCompleteOnce) {
    LogCapture quiet(4);  // keeps the timeout lines of the silent device off the output
    auto slow = std::make_shared<ScriptedDevice>();
    slow->setMode(Mode::kSilent);
    korva::host::attachDevice("dev-silent", slow);

    constexpr int kThreads = 6;
    constexpr int kPerThread = 60;
    std::vector<std::atomic<int>> counts(kThreads * kPerThread);
    auto callback = [](const char*, int, void* user) -> int {
        static_cast<std::atomic<int>*>(user)->fetch_add(1);
        return 0;
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kPerThread; ++i) {
                const std::string url =
                    i % 3 == 0 ? "/x?devIndex=dev-silent" : "/x?format=json&devIndex=dev-1";
                EXPECT_EQ(0, QX_DeviceCfgBus_ProcessAsyn(0, url, "", callback,
                                                         &counts[t * kPerThread + i], 20));
            }
        });
    }
    for (auto& thread : threads) thread.join();
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    auto allDone = [&] {
        return std::all_of(counts.begin(), counts.end(), [](auto& count) { return count > 0; });
    };
    while (!allDone() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(10ms);
    }
    std::this_thread::sleep_for(100ms);
    for (size_t n = 0; n < counts.size(); ++n) EXPECT_EQ(1, counts[n].load()) << "relay " << n;
}

// Runs in a child process: shutdown must return with a relay, an alarm and a notification
// pending, and the bus must serve again afterwards.
void shutDownWithWorkPending() {
    HostFixture host;
    host.device()->setMode(Mode::kDeferred);
    CallLog<Completion> pending;
    if (QX_DeviceCfgBus_ProcessAsyn(0, kUrl, "", recordCompletion, &pending, 60000) != 0) exit(2);
    if (!host.device()->waitForRequests(1)) exit(3);
    korva::host::detachDevice("dev-1");
    korva::host::publishAlarm("", "alarm");
    korva::host::shutdown();

    korva::host::reattachDevice("dev-1");
    host.device()->setMode(Mode::kImmediate);
    CallLog<Completion> after;
    if (QX_DeviceCfgBus_ProcessAsyn(0, kUrl, "", recordCompletion, &after, 1000) != 0) exit(4);
    if (!after.waitFor(1) || after.calls()[0].bytes != "{}") exit(5);
    exit(pending.size() == 0 ? 0 : 6);
}

TEST(HostShutdownTest, StopsWithWorkPendingAndServesAgain) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(shutDownWithWorkPending(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace korva::testing
