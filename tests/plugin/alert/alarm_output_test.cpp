// Writing parts: framing, fan-out of one alarm, the alarm routine's results, incomplete writes,
// broken links, and parts of one stream never written at once.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>

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

    second.exchange().breakLink();
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

// Holds a stream's writes until opened; shared with the script, which may outlive the test.
struct WriteGate {
    std::atomic<bool> open{false};
    std::atomic<int> entered{0};
};

std::function<int(int)> heldWrites(const std::shared_ptr<WriteGate>& gate, bool broken) {
    return [gate, broken](int length) {
        ++gate->entered;
        while (!gate->open) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return broken ? QXHttpService::CHttpExchange::kLinkBroken : length;
    };
}

void deliver(CEventPto& service, const std::string& alarm) {
    CEventPto::fAlarmDataCallBack(alarm.data(), static_cast<int>(alarm.size()), &service);
}

int linesWith(const korva::testing::LogCapture& log, const std::string& text) {
    const auto lines = log.lines();
    return static_cast<int>(std::count_if(lines.begin(), lines.end(), [&](const auto& line) {
        return line.text.find(text) != std::string::npos;
    }));
}

// The writer of the slow stream is held on its first part while alarms keep coming.
TEST_F(AlarmOutput, FullStreamQueueEndsThatStreamAloneAndDiscardsItsParts) {
    korva::testing::LogCapture log;
    const StreamRequest slow = requestStream(service), other = requestStream(service, "user2");
    const auto session = sessionOf(slow);
    auto gate = std::make_shared<WriteGate>();
    slow.exchange().setRespondResult(heldWrites(gate, false));
    const std::string big =
        alarmJson("dev-1", "\"channelName\":\"" + std::string(4000, 'x') + "\"");
    deliver(service, big);
    ASSERT_TRUE(waitUntil([&] { return gate->entered == 1; }));
    const size_t document = session->queuedBytes();
    EXPECT_TRUE(session->idle() == false);
    korva::host::advanceClock(6000);  // no heartbeat behind parts on their way
    EXPECT_EQ(session->heartBeatCount, 0);
    int offered = 1;
    while (!session->ended() && offered < 1000) {
        deliver(service, big);
        ++offered;
    }
    EXPECT_EQ(offered, static_cast<int>(CAlertStreamSession::kMaxQueuedBytes / document) + 1);
    EXPECT_EQ(session->queuedBytes(), document);  // only the part being written is left
    EXPECT_EQ(sessionOf(slow), nullptr);
    EXPECT_EQ(subscribedDevices(), Devices{"dev-2"});
    deliver(service, alarmJson("dev-2"));
    EXPECT_TRUE(other.exchange().waitForResponds(2));
    gate->open = true;
    ASSERT_TRUE(waitUntil([&] { return session->idle(); }));
    EXPECT_EQ(slow.exchange().respondCount(), 2);  // the head and the part that was going out
    EXPECT_EQ(session->queuedBytes(), 0u);
    EXPECT_EQ(linesWith(log, "stream queue full"), 1);
}

TEST_F(AlarmOutput, BrokenLinkDiscardsQueuedPartsAndLogsOnce) {
    korva::testing::LogCapture log;
    const StreamRequest stream = requestStream(service);
    const auto session = sessionOf(stream);
    auto gate = std::make_shared<WriteGate>();
    stream.exchange().setRespondResult(heldWrites(gate, true));
    for (int i = 0; i < 50; ++i) deliver(service, alarmJson("dev-1"));
    ASSERT_TRUE(waitUntil([&] { return gate->entered == 1; }));
    gate->open = true;
    ASSERT_TRUE(waitUntil([&] { return session->ended() && session->idle(); }));
    EXPECT_EQ(stream.exchange().respondCount(), 2);
    EXPECT_EQ(session->queuedBytes(), 0u);
    EXPECT_EQ(linesWith(log, "link broken"), 1);
    EXPECT_EQ(service.streams().size(), 0u);
}

}  // namespace
}  // namespace QXKORVAProtocol::alert_test
