// Heartbeats of quiet streams, the clean-up of failing streams and of the subscription, and the
// end of a device's streams when the device goes away.
#include <gtest/gtest.h>

#include <regex>

#include "host/device_mgr.h"
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

// Quiet time starts at the last write; the tick counter may wrap in between.
TEST_F(HeartBeat, QuietStreamGetsNumberedHeartbeatsEveryFiveSeconds) {
    for (const uint32_t start : {uint32_t{kStartTick}, 0xFFFFFFFFu - 1500}) {
        service.stop();
        service.streams().clear();
        korva::host::useManualClock(start);
        ASSERT_EQ(service.start(), 0);
        const StreamRequest stream = requestStream(service);
        const auto session = sessionOf(stream);
        for (int round = 1; round <= 2; ++round) {
            for (int second = 1; second <= 4; ++second) korva::host::advanceClock(1000);
            EXPECT_EQ(session->heartBeatCount, round - 1) << start;
            korva::host::advanceClock(1000);
            ASSERT_TRUE(waitUntil([&] {
                return session->lastSendTick == start + 5000u * static_cast<unsigned>(round);
            }));
        }
        const auto first = childrenOf(stream.parts()[0]);
        ASSERT_EQ(first.size(), 5u);
        EXPECT_TRUE(std::regex_match(
            first[0], std::regex(R"(dataTime=\d{4}-\d\d-\d\dT[\d:]{8}[+-]\d\d:\d\d)")))
            << first[0];
        EXPECT_EQ(Devices(first.begin() + 1, first.end()),
                  (Devices{"activePostCount=1", "eventType=heartBeat", "eventState=active",
                           "eventDescription=Heart Beat"}));
        EXPECT_EQ(childrenOf(stream.parts()[1])[1], "activePostCount=2");
    }
}

using CleanUp = AlertServiceTest;

// Runs are called directly, so no heartbeat write resets the failure counts meanwhile.
TEST_F(CleanUp, FailingStreamsGoThenTheirDevicesThenTheSubscriptionOnce) {
    const StreamRequest a = requestStream(service), b = requestStream(service),
                        c = requestStream(service, "user2");
    const int firstId = service.getAlarmSubscribeId();
    const auto run = [&](std::vector<const StreamRequest*> failing, const StreamRequest* spared) {
        for (auto* s : failing) sessionOf(*s)->sendFailCount = CEventPto::kMaxSendFailCount + 1;
        if (spared) sessionOf(*spared)->sendFailCount = CEventPto::kMaxSendFailCount;
        CEventPto::checkAbnormalOnTimer(service.getAbnormalTimerId(), &service);
    };
    run({&a}, &b);
    EXPECT_EQ(service.streams().size(), 2u);
    EXPECT_EQ(sessionOf(a), nullptr);
    EXPECT_EQ(subscribedDevices(), (Devices{"dev-1", "dev-2"}));

    run({&b, &c}, nullptr);
    EXPECT_EQ(service.streams().size(), 0u);
    EXPECT_EQ(service.getAlarmSubscribeId(), -1);
    EXPECT_TRUE(korva::host::listSubscriptions().empty());
    run({}, nullptr);
    ASSERT_EQ(requestStream(service).status, 200);
    EXPECT_NE(service.getAlarmSubscribeId(), firstId);
    EXPECT_EQ(subscribedDevices(), Devices{"dev-1"});
}

TEST_F(CleanUp, TimerEndsTheSubscriptionAfterTheLastStreamWent) {
    const StreamRequest stream = requestStream(service);
    stream.exchange().breakLink();
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
    const StreamRequest a = requestStream(service), b = requestStream(service),
                        other = requestStream(service, "user2");
    CEventPto::fDeviceNotifyCallBack(kDeviceEventAttached, "dev-1", &service);
    CEventPto::fDeviceNotifyCallBack(kDeviceEventDetached, nullptr, &service);
    EXPECT_EQ(service.streams().size(), 3u);
    ASSERT_TRUE(korva::host::detachDevice("dev-1"));
    ASSERT_TRUE(waitUntil([&] { return service.streams().size() == 1; }));
    EXPECT_EQ(service.streams().countByDevice("dev-2"), 1u);
    // An ended stream lets go of its exchange (the host then closes the connection).
    EXPECT_EQ(a.request->holder().exchange.use_count(), 1);
    EXPECT_EQ(other.request->holder().exchange.use_count(), 2);
    EXPECT_EQ(subscribedDevices(), (Devices{"dev-1", "dev-2"}));  // the clean-up's business
}

}  // namespace
}  // namespace QXKORVAProtocol::alert_test
