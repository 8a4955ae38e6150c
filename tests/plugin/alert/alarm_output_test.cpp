// Writing parts: framing, fan-out of one alarm, the alarm routine's results, incomplete writes,
// broken links, and parts of one stream never written at once.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>

#include "plugin/alert/alarm_bus_bodies.h"
#include "plugin/alert/alert_part.h"
#include "tests/plugin/alert/alert_test_support.h"

namespace QXKORVAProtocol::alert_test {
namespace {

TEST(AlertPart, HeaderCarriesTheExactLength) {
    const std::string part = buildAlertPart(std::string(700, 'x'));
    EXPECT_EQ(part.size(), 783u);
    EXPECT_EQ(part.substr(0, 83),
              "--boundary\r\nContent-Type: application/xml; charset=\"UTF-8\"\r\n"
              "Content-Length: 700\r\n\r\n");
    EXPECT_EQ(documentOf(buildAlertPart("")), "");
}

TEST(AlarmBusBodies, CompactJsonInKeyOrder) {
    EXPECT_EQ(buildSubscribeBody("dev-1"),
              "{\"SubscribeDeviceMgmt\":{\"DevEventList\":[{\"Dev\":{\"devIndex\":\"dev-1\","
              "\"uploadMode\":\"all\"}}],\"eventMode\":\"device\"}}\n");
    EXPECT_EQ(buildAddDeviceBody("d"),
              "{\"SubscribeDevEvent\":{\"devIndex\":\"d\",\"uploadMode\":\"all\"}}\n");
}

using AlarmOutput = AlertServiceTest;

TEST_F(AlarmOutput, AlarmGoesToEveryStreamOfItsDeviceAfterTheHead) {
    const StreamRequest first = requestStream(service), second = requestStream(service),
                        other = requestStream(service, "user2");
    ASSERT_EQ(first.status, 200);
    EXPECT_EQ(first.asyncReply, 1);
    EXPECT_TRUE(first.exchange().streaming());
    EXPECT_EQ(first.exchange().writes(), Devices{""});  // the head, no body

    korva::host::publishAlarm("dev-1", alarmJson("dev-1", R"("eventType":"VMD")"));
    ASSERT_TRUE(first.exchange().waitForResponds(2));
    ASSERT_TRUE(second.exchange().waitForResponds(2));
    EXPECT_EQ(first.parts(), second.parts());
    EXPECT_NE(documentOf(first.parts()[0]).find("<eventType>VMD</eventType>"), std::string::npos);
    korva::host::flushAlarms();
    EXPECT_EQ(other.exchange().respondCount(), 1);
}

TEST_F(AlarmOutput, RoutineResultsAndNothingQueuedOnFailure) {
    const StreamRequest stream = requestStream(service);
    const std::pair<std::string, int> cases[] = {
        // 0 stands for the length
        {"{\"EventNotificationAlert\":", -1},
        {alarmJson("dev-1", R"("eventDescription":"Heart Beat")"), 0},
        {R"({"EventNotificationAlert":{"devIndex":1}})", -1},
        {alarmJson("dev-1", R"("activePostCount":"3")"), -1},
        {alarmJson("dev-9"), 0},
    };
    for (const auto& [data, expected] : cases) {
        const int length = static_cast<int>(data.size());
        EXPECT_EQ(CEventPto::fAlarmDataCallBack(data.data(), length, &service),
                  expected == 0 ? length : expected)
            << data;
    }
    EXPECT_EQ(CEventPto::fAlarmDataCallBack(nullptr, 2, &service), -1);
    EXPECT_EQ(CEventPto::fAlarmDataCallBack("{}", 2, nullptr), -1);
    // A good alarm afterwards is the first part: none of the above queued anything.
    const std::string good = alarmJson("dev-1", R"("eventType":"good")");
    CEventPto::fAlarmDataCallBack(good.data(), static_cast<int>(good.size()), &service);
    ASSERT_TRUE(stream.exchange().waitForResponds(2));
    EXPECT_NE(stream.parts()[0].find(">good<"), std::string::npos);
}

TEST_F(AlarmOutput, IncompleteWritesCountUntilACompleteOne) {
    const StreamRequest stream = requestStream(service);
    const auto session = sessionOf(stream);
    stream.exchange().setRespondResult([](int length) { return length - 1; });
    for (int i = 1; i <= 2; ++i) {
        korva::host::publishAlarm("dev-1", alarmJson("dev-1"));
        ASSERT_TRUE(waitUntil([&] { return session->sendFailCount == i; }));
    }
    EXPECT_EQ(session->lastSendTick, kStartTick);
    korva::host::advanceClock(700);
    stream.exchange().setRespondResult([](int length) { return length; });
    korva::host::publishAlarm("dev-1", alarmJson("dev-1"));
    ASSERT_TRUE(waitUntil([&] { return session->sendFailCount == 0; }));
    EXPECT_EQ(session->lastSendTick, kStartTick + 700);
    EXPECT_EQ(service.streams().size(), 1u);
}

TEST_F(AlarmOutput, BrokenLinkDropsStreamAndTheLastOneDropsTheDevice) {
    const StreamRequest first = requestStream(service), other = requestStream(service, "user2");
    StreamRequest second = requestStream(service);
    first.exchange().breakLink();
    korva::host::publishAlarm("dev-1", alarmJson("dev-1"));
    ASSERT_TRUE(waitUntil([&] { return service.streams().size() == 2; }));
    ASSERT_TRUE(second.exchange().waitForResponds(2));
    EXPECT_EQ(subscribedDevices(), (Devices{"dev-1", "dev-2"}));
    const StreamRequest replacement = requestStream(service);  // the broken one's slot is free
    ASSERT_EQ(replacement.status, 200);
    replacement.exchange().breakLink();

    second.request.reset();  // the connection is gone altogether
    korva::host::publishAlarm("dev-1", alarmJson("dev-1"));
    ASSERT_TRUE(waitUntil([&] { return service.streams().size() == 1; }));
    EXPECT_TRUE(waitUntil([] { return subscribedDevices() == Devices{"dev-2"}; }));
}

TEST_F(AlarmOutput, PartsOfOneStreamAreNeverWrittenAtOnce) {
    const StreamRequest stream = requestStream(service);
    struct Counters {  // shared with the script, which may outlive the test body
        std::atomic<int> inFlight{0}, most{0};
    };
    auto counters = std::make_shared<Counters>();
    stream.exchange().setRespondResult([counters](int length) {
        const int now = ++counters->inFlight;
        counters->most = std::max(counters->most.load(), now);
        std::this_thread::sleep_for(std::chrono::microseconds(300));
        --counters->inFlight;
        return length;
    });
    std::thread heartbeats([] {
        for (int i = 0; i < 10; ++i) korva::host::advanceClock(1000);
    });
    for (int i = 0; i < 60; ++i) korva::host::publishAlarm("dev-1", alarmJson("dev-1"));
    heartbeats.join();
    korva::host::flushAlarms();
    ASSERT_TRUE(stream.exchange().waitForResponds(61 + sessionOf(stream)->heartBeatCount));
    EXPECT_EQ(counters->most.load(), 1);
    for (const std::string& part : stream.parts()) ASSERT_NE(documentOf(part), "<malformed part>");
}

}  // namespace
}  // namespace QXKORVAProtocol::alert_test
