// Heartbeats of quiet streams, the clean-up of failing streams and of the subscription, and the
// end of a device's streams when the device goes away.
#include <gtest/gtest.h>

#include <regex>

#include "host/device_mgr.h"
#include "host/kvl_runtime.h"
#include "host/xml_base.h"
#include "tests/plugin/alert/alert_test_support.h"

namespace QXKORVAProtocol::alert_test {
namespace {

using Devices = std::vector<std::string>;

// Child element name=text pairs of a heartbeat document's root.
std::vector<std::string> childrenOf(const std::string& xml) {
    QXBase::CXmlBase doc;
    std::vector<std::string> out;
    if (!doc.Parse(xml) || !doc.FindElem("EventNotificationAlert") || !doc.IntoElem()) {
        return {"<unreadable>"};
    }
    while (doc.NextSibElem()) out.push_back(doc.GetTagName() + "=" + doc.GetData());
    return out;
}

TEST(HeartBeatDocument, FixedChildrenAndCountingNumber) {
    CAlertStreamSession stream(7, 0, "dev-1");
    std::string xml;
    ASSERT_EQ(CEventPto::buildHeartBeatXml(stream, &xml), 1);
    EXPECT_EQ(xml.find("<?xml"), std::string::npos);
    EXPECT_EQ(xml.rfind("<EventNotificationAlert>", 0), 0u) << xml;
    const std::vector<std::string> children = childrenOf(xml);
    ASSERT_EQ(children.size(), 5u) << xml;
    EXPECT_TRUE(std::regex_match(
        children[0], std::regex(R"(dataTime=\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d\d:\d\d)")))
        << children[0];
    EXPECT_EQ(std::vector<std::string>(children.begin() + 1, children.end()),
              (std::vector<std::string>{"activePostCount=1", "eventType=heartBeat",
                                        "eventState=active", "eventDescription=Heart Beat"}));
    CEventPto::buildHeartBeatXml(stream, &xml);
    EXPECT_EQ(childrenOf(xml)[1], "activePostCount=2");
}

using HeartBeat = AlertServiceTest;

// The activePostCount of a heartbeat part.
std::string postCountOf(const std::string& part) {
    for (const std::string& child : childrenOf(documentOf(part))) {
        if (child.rfind("activePostCount=", 0) == 0) return child.substr(16);
    }
    return "<none>";
}

TEST_F(HeartBeat, QuietStreamGetsNumberedHeartbeatsEveryFiveSeconds) {
    const StreamRequest stream = requestStream(service);
    const auto session = sessionOf(stream);
    ASSERT_NE(session, nullptr);
    for (int second = 1; second <= 4; ++second) korva::host::advanceClock(1000);
    EXPECT_EQ(session->heartBeatCount, 0);
    korva::host::advanceClock(1000);  // quiet for 5000 ms
    ASSERT_TRUE(waitUntil([&] { return session->lastSendTick == kStartTick + 5000; }));
    EXPECT_EQ(postCountOf(stream.parts()[0]), "1");
    EXPECT_EQ(childrenOf(documentOf(stream.parts()[0]))[2], "eventType=heartBeat");

    for (int second = 1; second <= 4; ++second) korva::host::advanceClock(1000);
    EXPECT_EQ(session->heartBeatCount, 1) << "quiet time restarts at the complete write";
    korva::host::advanceClock(1000);
    ASSERT_TRUE(stream.exchange().waitForResponds(3));
    EXPECT_EQ(postCountOf(stream.parts()[1]), "2");
}

TEST_F(HeartBeat, AlarmWriteResetsTheQuietTime) {
    const StreamRequest stream = requestStream(service);
    const auto session = sessionOf(stream);
    korva::host::advanceClock(3000);
    korva::host::publishAlarm("dev-1", alarmJson("dev-1"));
    ASSERT_TRUE(waitUntil([&] { return session->lastSendTick == kStartTick + 3000; }));
    korva::host::advanceClock(4000);  // 7 s after the stream opened, 4 s after the alarm
    EXPECT_EQ(session->heartBeatCount, 0);
    korva::host::advanceClock(1000);
    EXPECT_EQ(session->heartBeatCount, 1);
}

TEST_F(HeartBeat, FailingStreamGetsOneEverySecond) {
    const StreamRequest stream = requestStream(service);
    const auto session = sessionOf(stream);
    stream.exchange().setRespondResult([](int length) { return length / 2; });
    korva::host::advanceClock(5000);
    for (int expected = 1; expected <= 3; ++expected) {
        EXPECT_EQ(session->heartBeatCount, expected);
        ASSERT_TRUE(stream.exchange().waitForResponds(1 + expected));
        ASSERT_TRUE(waitUntil([&] { return session->sendFailCount == expected; }));
        korva::host::advanceClock(1000);
    }
}

TEST_F(HeartBeat, WrapOfTheTickCounterIsHarmless) {
    service.stop();
    korva::host::useManualClock(0xFFFFFFFFu - 1500);
    ASSERT_EQ(service.start(), 0);
    const StreamRequest stream = requestStream(service);  // written just before the wrap
    const auto session = sessionOf(stream);
    for (int second = 1; second <= 4; ++second) korva::host::advanceClock(1000);
    EXPECT_LT(KVL_GetTimeTick(), 5000u) << "the tick has wrapped";
    EXPECT_EQ(session->heartBeatCount, 0);
    korva::host::advanceClock(1000);
    EXPECT_EQ(session->heartBeatCount, 1);
}

TEST_F(HeartBeat, ForeignTimerIdOrNoServiceDoesNothing) {
    const StreamRequest stream = requestStream(service);
    const auto session = sessionOf(stream);
    korva::host::advanceClock(900);
    session->lastSendTick = kStartTick - 10000;  // long quiet
    EXPECT_EQ(CEventPto::sendHeartBeatOnTimer(service.getHeartBeatTimerId() + 1000, &service), 0);
    EXPECT_EQ(CEventPto::sendHeartBeatOnTimer(service.getHeartBeatTimerId(), nullptr), 0);
    EXPECT_EQ(CEventPto::checkAbnormalOnTimer(service.getHeartBeatTimerId(), &service), 0);
    EXPECT_EQ(session->heartBeatCount, 0);
    EXPECT_EQ(CEventPto::sendHeartBeatOnTimer(service.getHeartBeatTimerId(), &service), 0);
    EXPECT_EQ(session->heartBeatCount, 1);
}

using CleanUp = AlertServiceTest;

// Clean-up runs are called directly here, so no heartbeat write interferes with the counts.
TEST_F(CleanUp, FailingStreamsGoThenDevicesThenTheSubscriptionOnce) {
    const StreamRequest a = requestStream(service);
    const StreamRequest b = requestStream(service);
    const StreamRequest c = requestStream(service, "user2");
    const int firstId = service.getAlarmSubscribeId();
    const auto runCleanUp = [&] {
        CEventPto::checkAbnormalOnTimer(service.getAbnormalTimerId(), &service);
    };
    sessionOf(a)->sendFailCount = CEventPto::kMaxSendFailCount + 1;
    sessionOf(b)->sendFailCount = CEventPto::kMaxSendFailCount;  // at the threshold: stays
    runCleanUp();
    EXPECT_EQ(service.streams().size(), 2u);
    EXPECT_EQ(sessionOf(a), nullptr);
    EXPECT_EQ(AlertHost::subscribedDevices(), (Devices{"dev-1", "dev-2"}));

    sessionOf(b)->sendFailCount = CEventPto::kMaxSendFailCount + 1;
    sessionOf(c)->sendFailCount = CEventPto::kMaxSendFailCount + 5;
    runCleanUp();
    EXPECT_EQ(service.streams().size(), 0u);
    EXPECT_EQ(service.getAlarmSubscribeId(), -1);
    EXPECT_TRUE(korva::host::listSubscriptions().empty());

    runCleanUp();  // empty table, no subscription: nothing to do
    EXPECT_EQ(service.getAlarmSubscribeId(), -1);
    const StreamRequest again = requestStream(service);
    ASSERT_EQ(again.status, 200);
    EXPECT_NE(service.getAlarmSubscribeId(), -1);
    EXPECT_NE(service.getAlarmSubscribeId(), firstId);
    EXPECT_EQ(AlertHost::subscribedDevices(), Devices{"dev-1"});
}

TEST_F(CleanUp, LastStreamGoneOnBrokenLinkEndsSubscriptionAtTheNextRun) {
    StreamRequest stream = requestStream(service);
    stream.request.reset();
    korva::host::publishAlarm("dev-1", alarmJson("dev-1"));
    ASSERT_TRUE(waitUntil([&] { return service.streams().size() == 0; }));
    EXPECT_NE(service.getAlarmSubscribeId(), -1);
    korva::host::advanceClock(9999);
    EXPECT_NE(service.getAlarmSubscribeId(), -1);
    korva::host::advanceClock(1);  // the clean-up timer's first run
    EXPECT_EQ(service.getAlarmSubscribeId(), -1);
    EXPECT_TRUE(korva::host::listSubscriptions().empty());
}

TEST_F(CleanUp, SubscriptionForgottenByTheBusDropsEveryStream) {
    const StreamRequest a = requestStream(service);
    const StreamRequest b = requestStream(service, "user2");
    const auto dropped = service.streams().snapshot();
    korva::host::resetAlarmBus();
    CEventPto::checkAbnormalOnTimer(service.getAbnormalTimerId(), &service);
    EXPECT_EQ(service.getAlarmSubscribeId(), -1);
    EXPECT_EQ(service.streams().size(), 0u);
    korva::host::advanceClock(10000);  // no heartbeat goes to the dropped streams
    for (const auto& session : dropped) EXPECT_EQ(session->heartBeatCount, 0);

    ASSERT_EQ(requestStream(service, "user2").status, 200);
    EXPECT_EQ(AlertHost::subscribedDevices(), Devices{"dev-2"});
}

using DeviceEvents = AlertServiceTest;

TEST_F(DeviceEvents, DetachEndsExactlyThatDevicesStreams) {
    const StreamRequest a = requestStream(service);
    const StreamRequest b = requestStream(service);
    const StreamRequest other = requestStream(service, "user2");
    ASSERT_EQ(service.streams().size(), 3u);

    CEventPto::fDeviceNotifyCallBack(kDeviceEventAttached, "dev-1", &service);
    CEventPto::fDeviceNotifyCallBack(kDeviceEventDetached, nullptr, &service);
    CEventPto::fDeviceNotifyCallBack(kDeviceEventDetached, "dev-1", nullptr);
    CEventPto::fDeviceNotifyCallBack(7, "dev-1", &service);
    EXPECT_EQ(service.streams().size(), 3u);

    ASSERT_TRUE(korva::host::detachDevice("dev-1"));
    ASSERT_TRUE(waitUntil([&] { return service.streams().size() == 1; }));
    EXPECT_EQ(service.streams().countByDevice("dev-2"), 1u);
    // The device stays in the subscription; only the clean-up ends it once nothing is left.
    EXPECT_EQ(AlertHost::subscribedDevices(), (Devices{"dev-1", "dev-2"}));
}

}  // namespace
}  // namespace QXKORVAProtocol::alert_test
