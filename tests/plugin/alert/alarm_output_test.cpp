// Writing parts: framing, the alarm routine's fan-out, incomplete writes, broken links and the
// order of parts on one stream.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>

#include "plugin/alert/alarm_bus_bodies.h"
#include "plugin/alert/alert_part.h"
#include "tests/plugin/alert/alert_test_support.h"

namespace QXKORVAProtocol::alert_test {
namespace {

TEST(AlertPart, HeaderCarriesTheExactLength) {
    const std::string doc700(700, 'x');
    const std::string part = buildAlertPart(doc700);
    EXPECT_EQ(part.size(), 783u);
    EXPECT_EQ(part.substr(0, 83),
              "--boundary\r\nContent-Type: application/xml; charset=\"UTF-8\"\r\n"
              "Content-Length: 700\r\n\r\n");
    for (size_t length : {0u, 9u, 10u, 99999u}) {
        const std::string doc(length, 'a');
        EXPECT_EQ(documentOf(buildAlertPart(doc)), doc) << length;
        EXPECT_EQ(buildAlertPart(doc).size(), 80 + std::to_string(length).size() + length);
    }
}

TEST(AlarmBusBodies, CompactJsonInKeyOrder) {
    EXPECT_EQ(buildSubscribeBody("dev-1"),
              "{\"SubscribeDeviceMgmt\":{\"DevEventList\":[{\"Dev\":{\"devIndex\":\"dev-1\","
              "\"uploadMode\":\"all\"}}],\"eventMode\":\"device\"}}\n");
    EXPECT_EQ(buildAddDeviceBody("a\"b"),
              "{\"SubscribeDevEvent\":{\"devIndex\":\"a\\\"b\",\"uploadMode\":\"all\"}}\n");
}

using AlarmOutput = AlertServiceTest;

TEST_F(AlarmOutput, AlarmBecomesOnePartAfterTheHead) {
    const StreamRequest stream = requestStream(service);
    ASSERT_EQ(stream.status, 200);
    EXPECT_EQ(stream.asyncReply, 1);
    EXPECT_TRUE(stream.exchange().streaming());
    EXPECT_EQ(stream.exchange().status(), 200);
    ASSERT_EQ(stream.exchange().writes(), std::vector<std::string>{""});  // the head

    korva::host::publishAlarm("dev-1", alarmJson("dev-1", R"("eventType":"VMD")"));
    ASSERT_TRUE(stream.exchange().waitForResponds(2));
    const std::string written = stream.exchange().written();
    EXPECT_EQ(written.rfind("--boundary\r\n", 0), 0u);
    const std::string doc = documentOf(written);
    EXPECT_NE(doc.find("<eventType>VMD</eventType>"), std::string::npos) << doc;
    EXPECT_EQ(doc.find("devIndex"), std::string::npos) << doc;
}

struct CallbackCase {
    const char* name;
    std::string data;
    int expected;  // 0: the length
};

TEST_F(AlarmOutput, AlarmRoutineResultsAndNothingQueuedOnFailure) {
    const StreamRequest stream = requestStream(service);
    ASSERT_EQ(stream.status, 200);
    const CallbackCase cases[] = {
        {"not JSON", "{\"EventNotificationAlert\":", -1},
        {"root not object", "[1,2]", -1},
        {"alert not object", R"({"EventNotificationAlert":5})", -1},
        {"bus heartbeat", alarmJson("dev-1", R"("eventDescription":"Heart Beat")"), 0},
        {"no devIndex", R"({"EventNotificationAlert":{"eventType":"VMD"}})", -1},
        {"devIndex not string", R"({"EventNotificationAlert":{"devIndex":1}})", -1},
        {"wrong type", alarmJson("dev-1", R"("activePostCount":"3")"), -1},
        {"bad list element", alarmJson("dev-1", R"("DetectionRegionList":[true])"), -1},
        {"no stream of device", alarmJson("dev-9"), 0},
    };
    for (const CallbackCase& c : cases) {
        const int length = static_cast<int>(c.data.size());
        EXPECT_EQ(CEventPto::fAlarmDataCallBack(c.data.data(), length, &service),
                  c.expected == 0 ? length : c.expected)
            << c.name;
    }
    // A good alarm afterwards is the first part: none of the cases above queued anything.
    const std::string good = alarmJson("dev-1", R"("eventType":"good")");
    ASSERT_EQ(CEventPto::fAlarmDataCallBack(good.data(), static_cast<int>(good.size()), &service),
              static_cast<int>(good.size()));
    ASSERT_TRUE(stream.exchange().waitForResponds(2));
    EXPECT_NE(documentOf(stream.parts().front()).find(">good<"), std::string::npos);
}

TEST_F(AlarmOutput, BadArgumentsAreRefused) {
    korva::testing::LogCapture log;
    const char text[] = "{}";
    EXPECT_EQ(CEventPto::fAlarmDataCallBack(nullptr, 2, &service), -1);
    EXPECT_EQ(CEventPto::fAlarmDataCallBack(text, 0, &service), -1);
    EXPECT_EQ(CEventPto::fAlarmDataCallBack(text, 2, nullptr), -1);
    EXPECT_TRUE(log.contains("param error", 5));
    CEventPto::fAlarmProcessThread(nullptr);
    EXPECT_TRUE(log.contains("pCAlarmParam is NULL", 5));
}

TEST_F(AlarmOutput, EachStreamOfTheDeviceGetsTheSameText) {
    const StreamRequest first = requestStream(service);
    const StreamRequest second = requestStream(service);
    const StreamRequest other = requestStream(service, "user2");
    ASSERT_EQ(first.status, 200);
    ASSERT_EQ(second.status, 200);
    ASSERT_EQ(other.status, 200);
    korva::host::publishAlarm("dev-1", alarmJson("dev-1", R"("channelID":"3")"));
    ASSERT_TRUE(first.exchange().waitForResponds(2));
    ASSERT_TRUE(second.exchange().waitForResponds(2));
    EXPECT_EQ(first.parts(), second.parts());
    korva::host::flushAlarms();
    EXPECT_EQ(other.exchange().respondCount(), 1);  // only its head
}

TEST_F(AlarmOutput, IncompleteWritesCountUntilACompleteOne) {
    const StreamRequest stream = requestStream(service);
    ASSERT_EQ(stream.status, 200);
    const auto session = sessionOf(stream);
    ASSERT_NE(session, nullptr);
    stream.exchange().setRespondResult([](int length) { return length - 1; });
    for (int i = 1; i <= 3; ++i) {
        korva::host::publishAlarm("dev-1", alarmJson("dev-1"));
        ASSERT_TRUE(stream.exchange().waitForResponds(1 + i));
        ASSERT_TRUE(waitUntil([&] { return session->sendFailCount == i; }));
    }
    EXPECT_EQ(session->lastSendTick, kStartTick);  // no complete write yet
    korva::host::advanceClock(700);
    stream.exchange().setRespondResult([](int length) { return length; });
    korva::host::publishAlarm("dev-1", alarmJson("dev-1"));
    ASSERT_TRUE(waitUntil([&] { return session->sendFailCount == 0; }));
    EXPECT_EQ(session->lastSendTick, kStartTick + 700);
    EXPECT_EQ(service.streams().size(), 1u);
}

TEST_F(AlarmOutput, BrokenLinkDropsStreamAndLastOneDropsDevice) {
    const StreamRequest first = requestStream(service);
    const StreamRequest second = requestStream(service);
    const StreamRequest other = requestStream(service, "user2");
    ASSERT_EQ(service.streams().size(), 3u);
    using Devices = std::vector<std::string>;
    ASSERT_EQ(AlertHost::subscribedDevices(), (Devices{"dev-1", "dev-2"}));

    korva::testing::LogCapture log;
    first.exchange().breakLink();
    korva::host::publishAlarm("dev-1", alarmJson("dev-1"));
    ASSERT_TRUE(waitUntil([&] { return service.streams().size() == 2; }));
    ASSERT_TRUE(second.exchange().waitForResponds(2));
    EXPECT_TRUE(waitUntil([&] { return log.contains("[DevIndex=dev-1]link broken", 5); }));
    EXPECT_EQ(AlertHost::subscribedDevices(), (Devices{"dev-1", "dev-2"}));

    second.exchange().breakLink();
    korva::host::publishAlarm("dev-1", alarmJson("dev-1"));
    ASSERT_TRUE(waitUntil([&] { return service.streams().size() == 1; }));
    EXPECT_TRUE(waitUntil([] { return AlertHost::subscribedDevices() == Devices{"dev-2"}; }));
    EXPECT_EQ(service.getAlarmSubscribeId(), korva::host::listSubscriptions().front().id);
}

TEST_F(AlarmOutput, GoneConnectionCountsAsBrokenLink) {
    StreamRequest stream = requestStream(service, "user3");
    ASSERT_EQ(stream.status, 200);
    stream.request.reset();  // the host forgets the connection's handle
    korva::host::publishAlarm("dev-3", alarmJson("dev-3"));
    EXPECT_TRUE(waitUntil([&] { return service.streams().size() == 0; }));
}

// A latch that holds the writes of one exchange until released.
class WriteGate {
  public:
    int hold(int length) {
        std::unique_lock<std::mutex> lock(m_mutex);
        ++m_waiting;
        m_changed.notify_all();
        m_changed.wait(lock, [&] { return m_open; });
        return length;
    }
    void waitForWriter() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [&] { return m_waiting > 0; });
    }
    void open() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }

  private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_waiting = 0;
    bool m_open = false;
};

TEST_F(AlarmOutput, RemovedStreamStillGetsItsQueuedParts) {
    const StreamRequest stream = requestStream(service);
    ASSERT_EQ(stream.status, 200);
    auto gate = std::make_shared<WriteGate>();
    stream.exchange().setRespondResult([gate](int length) { return gate->hold(length); });
    for (int i = 0; i < 3; ++i) {
        korva::host::publishAlarm(
            "dev-1", alarmJson("dev-1", "\"channelID\":\"" + std::to_string(i) + "\""));
    }
    korva::host::flushAlarms();
    gate->waitForWriter();
    service.removeStream(sessionOf(stream)->getStreamId());
    gate->open();
    ASSERT_TRUE(stream.exchange().waitForResponds(4));
    // Parts leave in the order their writes complete; every one of them arrives.
    std::vector<std::string> channels;
    for (const std::string& part : stream.parts()) {
        const std::string doc = documentOf(part);
        const size_t at = doc.find("<channelID>");
        ASSERT_NE(at, std::string::npos) << doc;
        channels.push_back(doc.substr(at + 11, 1));
    }
    std::sort(channels.begin(), channels.end());
    EXPECT_EQ(channels, (std::vector<std::string>{"0", "1", "2"}));
}

TEST_F(AlarmOutput, PartsOfOneStreamAreNeverWrittenAtOnce) {
    const StreamRequest stream = requestStream(service);
    ASSERT_EQ(stream.status, 200);
    // Shared with the write script, which may still be running when the test body ends.
    struct Counters {
        std::atomic<int> inFlight{0};
        std::atomic<int> most{0};
    };
    auto counters = std::make_shared<Counters>();
    stream.exchange().setRespondResult([counters](int length) {
        const int now = ++counters->inFlight;
        counters->most = std::max(counters->most.load(), now);
        std::this_thread::sleep_for(std::chrono::microseconds(300));
        --counters->inFlight;
        return length;
    });
    constexpr int kAlarms = 60;
    std::thread heartbeats([&] {
        for (int i = 0; i < 10; ++i) korva::host::advanceClock(1000);
    });
    for (int i = 0; i < kAlarms; ++i) korva::host::publishAlarm("dev-1", alarmJson("dev-1"));
    heartbeats.join();
    korva::host::flushAlarms();
    const int expected = 1 + kAlarms + sessionOf(stream)->heartBeatCount;
    ASSERT_TRUE(stream.exchange().waitForResponds(expected, std::chrono::seconds(20)));
    EXPECT_EQ(counters->most.load(), 1);
    for (const std::string& part : stream.parts()) {
        ASSERT_NE(documentOf(part), "<malformed part>");
    }
}

}  // namespace
}  // namespace QXKORVAProtocol::alert_test
