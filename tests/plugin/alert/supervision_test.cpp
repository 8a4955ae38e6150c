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

// "name=text" of each child of a part's root.
std::vector<std::string> childrenOf(const std::string& part) {
    QXBase::CXmlBase doc;
    std::vector<std::string> out;
    if (doc.Parse(documentOf(part)) && doc.FindElem("EventNotificationAlert") && doc.IntoElem()) {
        while (doc.NextSibElem()) out.push_back(doc.GetTagName() + "=" + doc.GetData());
    }
    return out;
}

using HeartBeat = AlertServiceTest;

TEST_F(HeartBeat, QuietStreamGetsNumberedHeartbeatsEveryFiveSeconds) {
    const StreamRequest stream = requestStream(service);
    const auto session = sessionOf(stream);
    for (int round = 1; round <= 2; ++round) {
        for (int second = 1; second <= 4; ++second) korva::host::advanceClock(1000);
        EXPECT_EQ(session->heartBeatCount, round - 1) << "quiet time starts at the last write";
        korva::host::advanceClock(1000);
        ASSERT_TRUE(waitUntil([&] { return session->lastSendTick == kStartTick + 5000 * round; }));
    }
    const auto first = childrenOf(stream.parts()[0]);
    ASSERT_EQ(first.size(), 5u);
    EXPECT_TRUE(
        std::regex_match(first[0], std::regex(R"(dataTime=\d{4}-\d\d-\d\dT[\d:]{8}[+-]\d\d:\d\d)")))
        << first[0];
    EXPECT_EQ(Devices(first.begin() + 1, first.end()),
              (Devices{"activePostCount=1", "eventType=heartBeat", "eventState=active",
                       "eventDescription=Heart Beat"}));
    EXPECT_EQ(childrenOf(stream.parts()[1])[1], "activePostCount=2");
}

TEST_F(HeartBeat, WrapOfTheTickCounterIsHarmless) {
    service.stop();
    korva::host::useManualClock(0xFFFFFFFFu - 1500);
    ASSERT_EQ(service.start(), 0);
    const StreamRequest stream = requestStream(service);  // opened just before the wrap
    const auto session = sessionOf(stream);
    for (int second = 1; second <= 4; ++second) korva::host::advanceClock(1000);
    EXPECT_LT(KVL_GetTimeTick(), 5000u);
    EXPECT_EQ(session->heartBeatCount, 0);
    korva::host::advanceClock(1000);
    EXPECT_EQ(session->heartBeatCount, 1);
}

using CleanUp = AlertServiceTest;

// Runs are called directly, so no heartbeat write resets the failure counts meanwhile.
TEST_F(CleanUp, FailingStreamsGoThenTheirDevicesThenTheSubscriptionOnce) {
    const StreamRequest a = requestStream(service);
    const StreamRequest b = requestStream(service);
    const StreamRequest c = requestStream(service, "user2");
    const int firstId = service.getAlarmSubscribeId();
    const auto run = [&] {
        CEventPto::checkAbnormalOnTimer(service.getAbnormalTimerId(), &service);
    };
    sessionOf(a)->sendFailCount = CEventPto::kMaxSendFailCount + 1;
    sessionOf(b)->sendFailCount = CEventPto::kMaxSendFailCount;
    run();
    EXPECT_EQ(service.streams().size(), 2u);
    EXPECT_EQ(sessionOf(a), nullptr);
    EXPECT_EQ(subscribedDevices(), (Devices{"dev-1", "dev-2"}));

    sessionOf(b)->sendFailCount = CEventPto::kMaxSendFailCount + 1;
    sessionOf(c)->sendFailCount = CEventPto::kMaxSendFailCount + 1;
    run();
    EXPECT_EQ(service.streams().size(), 0u);
    EXPECT_EQ(service.getAlarmSubscribeId(), -1);
    EXPECT_TRUE(korva::host::listSubscriptions().empty());
    run();
    ASSERT_EQ(requestStream(service).status, 200);
    EXPECT_NE(service.getAlarmSubscribeId(), firstId);
    EXPECT_EQ(subscribedDevices(), Devices{"dev-1"});
}

TEST_F(CleanUp, TimerEndsTheSubscriptionAfterTheLastStreamWent) {
    StreamRequest stream = requestStream(service);
    stream.request.reset();
    korva::host::publishAlarm("dev-1", alarmJson("dev-1"));
    ASSERT_TRUE(waitUntil([&] { return service.streams().size() == 0; }));
    korva::host::advanceClock(9999);
    EXPECT_NE(service.getAlarmSubscribeId(), -1);
    korva::host::advanceClock(1);
    EXPECT_EQ(service.getAlarmSubscribeId(), -1);
}

TEST_F(CleanUp, SubscriptionForgottenByTheBusDropsEveryStream) {
    const StreamRequest a = requestStream(service), b = requestStream(service, "user2");
    const auto dropped = service.streams().snapshot();
    korva::host::resetAlarmBus();
    CEventPto::checkAbnormalOnTimer(service.getAbnormalTimerId(), &service);
    EXPECT_EQ(service.getAlarmSubscribeId(), -1);
    EXPECT_EQ(service.streams().size(), 0u);
    korva::host::advanceClock(10000);
    for (const auto& session : dropped) EXPECT_EQ(session->heartBeatCount, 0);
    ASSERT_EQ(requestStream(service, "user2").status, 200);
    EXPECT_EQ(subscribedDevices(), Devices{"dev-2"});
}

TEST_F(CleanUp, DetachEndsExactlyThatDevicesStreams) {
    const StreamRequest a = requestStream(service);
    const StreamRequest b = requestStream(service);
    const StreamRequest other = requestStream(service, "user2");
    CEventPto::fDeviceNotifyCallBack(kDeviceEventAttached, "dev-1", &service);
    CEventPto::fDeviceNotifyCallBack(kDeviceEventDetached, nullptr, &service);
    EXPECT_EQ(service.streams().size(), 3u);
    ASSERT_TRUE(korva::host::detachDevice("dev-1"));
    ASSERT_TRUE(waitUntil([&] { return service.streams().size() == 1; }));
    EXPECT_EQ(service.streams().countByDevice("dev-2"), 1u);
    EXPECT_EQ(subscribedDevices(), (Devices{"dev-1", "dev-2"}));  // the clean-up's business
}

}  // namespace
}  // namespace QXKORVAProtocol::alert_test
