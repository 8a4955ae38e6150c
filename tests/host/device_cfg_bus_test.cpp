// The device configuration bus: exactly one completion per accepted relay, on a bus thread,
// with the device's reply or the device-busy status after the timeout; bounds per device, client
// and bus; release of the relays of a client that left.
#include "host/device_cfg_bus.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <iterator>
#include <memory>

#include "gateway/hostlib/exchange_backend.h"
#include "gateway/hostlib/host_alarms.h"
#include "gateway/hostlib/host_devices.h"
#include "gateway/hostlib/host_lifetime.h"
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
    // Tests that tighten the bounds leave them so: every test starts from the defaults.
    void SetUp() override { korva::host::setRelayLimits({}); }
    int relay(const std::string& url, RelayProbe* probe, int timeoutMs = 2000, int method = 0,
              const std::string& body = {}) {
        return QX_DeviceCfgBus_ProcessAsyn(method, url, body, recordCompletion, &probe->context,
                                           timeoutMs);
    }

    HostFixture m_host;
    ScriptedDevice& m_device = *m_host.device();
    // The bus outlives each test: its counters are compared against their values at set-up.
    const korva::host::RelayStats m_before = korva::host::relayStats();
};

TEST_F(DeviceCfgBusTest, CompletesExactlyOnceOnABusThreadInEveryDeviceMode) {
    struct Case {
        Mode mode;
        int timeoutMs;
        std::string expected;
    };
    const Case cases[] = {
        // Answered modes get a timeout that a loaded machine cannot overrun before the answer.
        {Mode::kImmediate, 1500, R"({"DeviceInfo":{}})"},
        {Mode::kDeferred, 1500, R"({"later":true})"},
        {Mode::kSilent, 100, kDeviceBusy},
        {Mode::kSilent, 0, kDeviceBusy},  // an immediate timeout still completes on the bus
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.mode));
        m_device.setMode(c.mode);
        m_device.setDefaultAnswer(R"({"DeviceInfo":{}})");
        RelayProbe probe;
        CallLog<Completion>& log = probe.log;
        const size_t before = m_device.requests().size();
        const auto started = std::chrono::steady_clock::now();
        ASSERT_EQ(0, relay(kUrl, &probe, c.timeoutMs));
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
    RelayProbe probe;
    ASSERT_EQ(0, relay(kUrl, &probe, 50));
    ASSERT_TRUE(probe.log.waitFor(1));
    EXPECT_EQ(kDeviceBusy, probe.log.calls()[0].bytes);
    EXPECT_TRUE(m_device.replyPending(0, "{}"));
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(1u, probe.log.size());
    EXPECT_TRUE(logs.contains("late reply of device dev-1 dropped", 2));
}

TEST_F(DeviceCfgBusTest, HandsTheDeviceThePartsOfTheRequest) {
    RelayProbe probe;
    const std::string url = "/KORVA/Streaming/channels/101?format=json&devIndex=dev-1&x=1";
    ASSERT_EQ(0, relay(url, &probe, 2000, 1, R"({"a":1})"));
    ASSERT_TRUE(probe.log.waitFor(1));
    const auto requests = m_device.requests();
    ASSERT_EQ(1u, requests.size());
    EXPECT_EQ(1, requests[0].method);
    EXPECT_EQ("/KORVA/Streaming/channels/101", requests[0].path);
    EXPECT_EQ(url, requests[0].url);
    EXPECT_EQ("dev-1", requests[0].devIndex);
    EXPECT_EQ(R"({"a":1})", requests[0].body);
}

TEST_F(DeviceCfgBusTest, RefusesBadRequestsWithoutCallingBack) {
    RelayProbe probe;
    CallLog<Completion>& log = probe.log;
    auto refused = [&](int method, const std::string& url, int timeoutMs = 100,
                       QX_DeviceCfgCallBack callback = recordCompletion) {
        return QX_DeviceCfgBus_ProcessAsyn(method, url, "", callback, &probe.context, timeoutMs);
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
    RelayProbe pending;
    ASSERT_EQ(0, relay(kUrl, &pending, 100));
    ASSERT_TRUE(m_device.waitForRequests(1));

    ASSERT_TRUE(korva::host::detachDevice("dev-1"));
    RelayProbe refused;
    EXPECT_EQ(9, relay(kUrl, &refused));

    // The device answers after it went away: the caller still gets exactly one answer, the
    // busy status, once the timeout is over.
    EXPECT_TRUE(m_device.replyPending(0, R"({"stale":true})"));
    ASSERT_TRUE(pending.log.waitFor(1));
    EXPECT_EQ(kDeviceBusy, pending.log.calls()[0].bytes);

    ASSERT_TRUE(korva::host::reattachDevice("dev-1"));
    m_device.setMode(Mode::kImmediate);
    RelayProbe again;
    EXPECT_EQ(0, relay(kUrl, &again));
    ASSERT_TRUE(again.log.waitFor(1));
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(0u, refused.log.size());
    EXPECT_EQ(1u, pending.log.size());
}

TEST_F(DeviceCfgBusTest, ConcurrentRelaysEachCompleteOnce) {
    LogCapture quiet(4);  // keeps the timeout lines of the silent device off the output
    auto slow = std::make_shared<ScriptedDevice>();
    slow->setMode(Mode::kSilent);
    korva::host::attachDevice("dev-silent", slow);

    constexpr int kThreads = 6;
    constexpr int kPerThread = 60;
    std::vector<std::atomic<int>> counts(kThreads * kPerThread);
    std::vector<DeviceCfgContext> contexts(counts.size());
    for (size_t n = 0; n < counts.size(); ++n) contexts[n] = {-1, 0, nullptr, &counts[n]};
    auto callback = [](const char*, int, void* user) -> int {
        static_cast<std::atomic<int>*>(static_cast<DeviceCfgContext*>(user)->handler)->fetch_add(1);
        return 0;
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kPerThread; ++i) {
                const std::string url =
                    i % 3 == 0 ? "/x?devIndex=dev-silent" : "/x?format=json&devIndex=dev-1";
                EXPECT_EQ(0, QX_DeviceCfgBus_ProcessAsyn(
                                 0, url, "", callback,
                                 &contexts[static_cast<size_t>(t * kPerThread + i)], 20));
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

// A request of one client: its registered exchange and the probe of its relay.
struct ClientRequest {
    explicit ClientRequest(const std::string& peer)
        : exchange(std::make_shared<korva::testing::IdleExchange>(peer)),
          probe(QXHttpService::ExchangeRegistry::instance().add(exchange)) {}
    // The client goes away: the server ends the request.
    void leave() const { QXHttpService::ExchangeRegistry::instance().remove(exchange->handle()); }

    std::shared_ptr<korva::testing::IdleExchange> exchange;
    RelayProbe probe;
};

TEST_F(DeviceCfgBusTest, BoundsPerDeviceClientAndBusAnswerAtOnce) {
    LogCapture quiet(6);
    for (const char* name : {"quiet-1", "quiet-2"}) {
        auto device = std::make_shared<ScriptedDevice>();
        device->setMode(Mode::kSilent);
        korva::host::attachDevice(name, device);
    }
    korva::host::setRelayLimits({2, 3, 100});
    struct Step {
        const char* client;
        const char* device;
        const char* answer;  // nullptr: still waiting for its silent device
    };
    const Step steps[] = {
        {"10.0.0.1", "quiet-1", nullptr},
        {"10.0.0.1", "quiet-1", nullptr},
        {"10.0.0.1", "quiet-1", kDeviceBusy},  // the device's bound
        {"10.0.0.1", "quiet-2", nullptr},
        {"10.0.0.1", "dev-1", kDeviceBusy},  // the client's bound, although dev-1 is idle
        {"10.0.0.2", "dev-1", "{}"},         // another client is served
    };
    std::vector<std::unique_ptr<ClientRequest>> requests;
    for (const Step& step : steps) {
        requests.push_back(std::make_unique<ClientRequest>(step.client));
        const std::string url = std::string("/x?devIndex=") + step.device;
        ASSERT_EQ(0, relay(url, &requests.back()->probe, 10000));
    }
    for (size_t i = 0; i < std::size(steps); ++i) {
        SCOPED_TRACE(i);
        if (steps[i].answer == nullptr) continue;
        ASSERT_TRUE(requests[i]->probe.log.waitFor(1, 2s));
        EXPECT_EQ(steps[i].answer, requests[i]->probe.log.calls()[0].bytes);
    }
    korva::host::setRelayLimits({2, 3, 3});  // three relays hold slots: the bus is full
    RelayProbe refused;
    EXPECT_EQ(10, relay("/x?devIndex=dev-1", &refused));

    auto stats = korva::host::relayStats();
    EXPECT_EQ(3u, stats.outstanding);
    EXPECT_EQ(1u, stats.busyDevice - m_before.busyDevice);
    EXPECT_EQ(1u, stats.busyClient - m_before.busyClient);
    EXPECT_EQ(1u, stats.refusedFull - m_before.refusedFull);
    for (auto& request : requests) request->leave();
    for (auto& request : requests) ASSERT_TRUE(request->probe.log.waitFor(1, 2s));
    EXPECT_EQ(0u, korva::host::relayStats().outstanding);
    EXPECT_EQ(0u, refused.log.size());
}

TEST_F(DeviceCfgBusTest, ReleasesTheRelayOfAClientThatLeftAndDropsItsAnswer) {
    LogCapture logs(1);
    m_device.setMode(Mode::kDeferred);
    korva::host::setRelayLimits({1, 10, 100});
    ClientRequest first("10.0.0.1");
    ASSERT_EQ(0, relay(kUrl, &first.probe, 10000));
    ASSERT_TRUE(m_device.waitForRequests(1));
    first.leave();
    ASSERT_TRUE(first.probe.log.waitFor(1, 2s));  // at once, not after the 10 s timeout
    EXPECT_EQ(kDeviceBusy, first.probe.log.calls()[0].bytes);

    // Its device slot is free at once: the next relay reaches the device.
    ClientRequest second("10.0.0.2");
    ASSERT_EQ(0, relay(kUrl, &second.probe, 10000));
    ASSERT_TRUE(m_device.waitForRequests(2));
    EXPECT_TRUE(m_device.replyPending(0, R"({"first":1})"));
    EXPECT_TRUE(m_device.replyPending(1, R"({"second":2})"));
    ASSERT_TRUE(second.probe.log.waitFor(1));
    EXPECT_EQ(R"({"second":2})", second.probe.log.calls()[0].bytes);
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(1u, first.probe.log.size());
    EXPECT_TRUE(logs.contains("late reply of device dev-1 dropped", 2));

    // A request that ended before its relay never reaches the device.
    ClientRequest gone("10.0.0.3");
    gone.leave();
    ASSERT_EQ(0, relay(kUrl, &gone.probe, 10000));
    ASSERT_TRUE(gone.probe.log.waitFor(1, 2s));
    EXPECT_EQ(kDeviceBusy, gone.probe.log.calls()[0].bytes);
    EXPECT_EQ(2u, m_device.requests().size());
    EXPECT_EQ(2u, korva::host::relayStats().clientLeft - m_before.clientLeft);
}

// Runs in a child process: shutdown must return with a relay, an alarm and a notification
// pending, and the bus must serve again afterwards.
void shutDownWithWorkPending() {
    HostFixture host;
    host.device()->setMode(Mode::kDeferred);
    RelayProbe pending;
    if (QX_DeviceCfgBus_ProcessAsyn(0, kUrl, "", recordCompletion, &pending.context, 60000) != 0) {
        exit(2);
    }
    if (!host.device()->waitForRequests(1)) exit(3);
    korva::host::detachDevice("dev-1");
    korva::host::publishAlarm("", "alarm");
    korva::host::shutdown();

    korva::host::reattachDevice("dev-1");
    host.device()->setMode(Mode::kImmediate);
    RelayProbe after;
    if (QX_DeviceCfgBus_ProcessAsyn(0, kUrl, "", recordCompletion, &after.context, 1000) != 0) {
        exit(4);
    }
    if (!after.log.waitFor(1) || after.log.calls()[0].bytes != "{}") exit(5);
    exit(pending.log.size() == 0 ? 0 : 6);
}

TEST(HostShutdownTest, StopsWithWorkPendingAndServesAgain) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(shutDownWithWorkPending(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace korva::testing
