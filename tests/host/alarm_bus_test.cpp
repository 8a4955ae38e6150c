// The alarm bus: subscription bodies, delivery to started subscriptions of the device with the
// exact bytes, and the end of a subscription.
#include "host/alarm_bus.h"

#include <gtest/gtest.h>

#include <atomic>

#include "gateway/hostlib/host_alarms.h"
#include "gateway/testing/harness.h"
#include "tests/host/bus_test_support.h"

namespace korva::testing {
namespace {

using korva::host::flushAlarms;
using korva::host::publishAlarm;

int recordAlarm(const char* data, int length, void* user) {
    static_cast<CallLog<std::string>*>(user)->add(std::string(data, static_cast<size_t>(length)));
    return 0;
}

std::string subscribeBody(const std::string& devIndex) {
    return R"({"SubscribeDeviceMgmt":{"DevEventList":[{"Dev":{"devIndex":")" + devIndex +
           R"(","uploadMode":"all"}}],"eventMode":"device"}})"
           "\n";
}

std::string addDeviceBody(const std::string& devIndex) {
    return R"({"SubscribeDevEvent":{"devIndex":")" + devIndex + R"(","uploadMode":"all"}})";
}

class AlarmBusTest : public ::testing::Test {
  protected:
    // A started subscription for one device that records into log.
    int subscribe(const std::string& devIndex, CallLog<std::string>* log, bool start = true) {
        int id = -1;
        std::string reply;
        EXPECT_EQ(0,
                  QX_AlarmBus_Subscribe(&id, &reply, subscribeBody(devIndex), recordAlarm, log, 1));
        if (start) {
            EXPECT_EQ(0, QX_AlarmBus_StartUploadData(id));
        }
        return id;
    }

    HostFixture m_host;
};

TEST_F(AlarmBusTest, SubscribeReadsOnlyWellTypedBodies) {
    auto wrap = [](const char* inner) {
        return std::string(R"({"SubscribeDeviceMgmt":{)") + inner + "}}";
    };
    CallLog<std::string> log;
    auto subscribed = [&](const std::string& body) {
        int id = -1;
        const bool accepted = QX_AlarmBus_Subscribe(&id, nullptr, body, recordAlarm, &log, 1) == 0;
        EXPECT_EQ(accepted, id > 0) << body;
        return accepted;
    };
    EXPECT_TRUE(subscribed(subscribeBody("a")));
    EXPECT_TRUE(subscribed(wrap(R"("DevEventList":[])")));
    EXPECT_TRUE(
        subscribed(wrap(R"("DevEventList":[{"Dev":{"devIndex":"a"}},{"Dev":{"devIndex":"b"}}])")));
    for (const char* inner :
         {"", R"("DevEventList":{})", R"("DevEventList":["a"])", R"("DevEventList":[{"Dev":"a"}])",
          R"("DevEventList":[{"Dev":{"devIndex":7}}])",
          R"("DevEventList":[{"Dev":{"devIndex":""}}])",
          R"("DevEventList":[{"Dev":{"devIndex":"a","uploadMode":1}}])",
          R"("DevEventList":[],"eventMode":[])"}) {
        EXPECT_FALSE(subscribed(wrap(inner))) << inner;
    }
    for (const char* body : {"", "not json", "[]", R"({"SubscribeDeviceMgmt":"x"})",
                             R"({"SubscribeDeviceMgmt":{"DevEventList":[]}} trailing)"}) {
        EXPECT_FALSE(subscribed(body)) << body;
    }
    int id = -1;
    EXPECT_NE(0, QX_AlarmBus_Subscribe(&id, nullptr, subscribeBody("a"), nullptr, nullptr, 1));
    EXPECT_NE(0, QX_AlarmBus_Subscribe(nullptr, nullptr, subscribeBody("a"), recordAlarm, &log, 1));
}

TEST_F(AlarmBusTest, DeliversExactBytesToStartedSubscriptionsOfTheDevice) {
    CallLog<std::string> cam1, cam2, notStarted, both;
    subscribe("cam-1", &cam1);
    const int second = subscribe("cam-2", &cam2);
    subscribe("cam-1", &notStarted, false);
    const int fourth = subscribe("cam-1", &both);
    std::string reply;
    ASSERT_EQ(0, QX_AlarmBus_AddDevice(&reply, fourth, "cam-2", addDeviceBody("cam-2")));

    const std::string binary("<a>\0\xff\r\n</a>", 11);
    publishAlarm("cam-1", binary);
    publishAlarm("cam-2", "two");
    publishAlarm("cam-3", "nobody");
    publishAlarm("", "everyone");
    flushAlarms();

    EXPECT_EQ((std::vector<std::string>{binary, "everyone"}), cam1.calls());
    EXPECT_EQ((std::vector<std::string>{"two", "everyone"}), cam2.calls());
    EXPECT_EQ((std::vector<std::string>{binary, "two", "everyone"}), both.calls());
    EXPECT_EQ(0u, notStarted.size());

    ASSERT_EQ(0, QX_AlarmBus_DeleteDevice(&reply, fourth, "cam-1"));
    EXPECT_NE(0, QX_AlarmBus_DeleteDevice(&reply, fourth, "cam-1"));
    publishAlarm("cam-1", "after delete");
    flushAlarms();
    EXPECT_EQ(3u, both.size());
    EXPECT_EQ(3u, cam1.size());

    const auto subscriptions = korva::host::listSubscriptions();
    ASSERT_EQ(4u, subscriptions.size());
    EXPECT_EQ(second, subscriptions[1].id);
    EXPECT_FALSE(subscriptions[2].started);
    EXPECT_EQ((std::vector<std::string>{"cam-2"}), subscriptions[3].devices);
}

TEST_F(AlarmBusTest, AddDeviceChecksItsArguments) {
    CallLog<std::string> log;
    const int id = subscribe("cam-1", &log);
    auto add = [&](int subscription, const std::string& devIndex, const std::string& body) {
        std::string reply;
        const bool accepted = QX_AlarmBus_AddDevice(&reply, subscription, devIndex, body) == 0;
        EXPECT_FALSE(reply.empty()) << body;
        return accepted;
    };
    EXPECT_TRUE(add(id, "cam-2", addDeviceBody("cam-2")));
    EXPECT_TRUE(add(id, "cam-2", addDeviceBody("cam-2")));  // already there: no duplicate
    EXPECT_FALSE(add(id, "cam-3", addDeviceBody("cam-4")));
    for (const char* body :
         {R"({"SubscribeDevEvent":{"devIndex":3}})", R"({"SubscribeDevEvent":[]})", "{"}) {
        EXPECT_FALSE(add(id, "cam-3", body)) << body;
    }
    EXPECT_FALSE(add(id + 100, "cam-3", addDeviceBody("cam-3")));
    EXPECT_EQ((std::vector<std::string>{"cam-1", "cam-2"}),
              korva::host::listSubscriptions().at(0).devices);
    EXPECT_NE(0, QX_AlarmBus_StartUploadData(id + 100));
}

TEST_F(AlarmBusTest, UnsubscribeAndResetEndDelivery) {
    CallLog<std::string> first, second;
    const int a = subscribe("cam-1", &first);
    const int b = subscribe("cam-1", &second);
    EXPECT_NE(0, QX_AlarmBus_CheckIDValid(a));
    std::string reply;
    ASSERT_EQ(0, QX_AlarmBus_UnSubscribe(&reply, a, 1));
    EXPECT_NE(0, QX_AlarmBus_UnSubscribe(&reply, a, 1));
    EXPECT_EQ(0, QX_AlarmBus_CheckIDValid(a));
    publishAlarm("cam-1", "x");
    flushAlarms();
    EXPECT_EQ(0u, first.size());
    EXPECT_EQ(1u, second.size());

    korva::host::resetAlarmBus();
    EXPECT_EQ(0, QX_AlarmBus_CheckIDValid(b));
    EXPECT_TRUE(korva::host::listSubscriptions().empty());
    publishAlarm("cam-1", "y");
    flushAlarms();
    EXPECT_EQ(1u, second.size());
    // Ids are never reused, not even after a reset.
    CallLog<std::string> third;
    EXPECT_GT(subscribe("cam-1", &third), b);
}

TEST_F(AlarmBusTest, UnsubscribeWaitsForTheRunningRoutine) {
    SlowRoutine slow;
    auto routine = [](const char*, int, void* user) -> int {
        static_cast<SlowRoutine*>(user)->run();
        return 0;
    };
    int id = -1;
    ASSERT_EQ(0, QX_AlarmBus_Subscribe(&id, nullptr, subscribeBody("cam-1"), routine, &slow, 1));
    ASSERT_EQ(0, QX_AlarmBus_StartUploadData(id));
    publishAlarm("cam-1", "first");
    publishAlarm("cam-1", "second");
    slow.waitUntilEntered();
    ASSERT_EQ(0, QX_AlarmBus_UnSubscribe(nullptr, id, 1));
    EXPECT_FALSE(slow.inside);
    flushAlarms();
    EXPECT_EQ(1, slow.calls.load());
}

TEST_F(AlarmBusTest, RoutineMayEndItsOwnSubscription) {
    struct State {
        int id = -1;
        std::atomic<int> calls{0};
        std::atomic<int> result{-1};
    } state;
    auto routine = [](const char*, int, void* user) -> int {
        auto* self = static_cast<State*>(user);
        self->calls.fetch_add(1);
        self->result = QX_AlarmBus_UnSubscribe(nullptr, self->id, 1);
        return 0;
    };
    ASSERT_EQ(
        0, QX_AlarmBus_Subscribe(&state.id, nullptr, subscribeBody("cam-1"), routine, &state, 1));
    ASSERT_EQ(0, QX_AlarmBus_StartUploadData(state.id));
    publishAlarm("cam-1", "a");
    publishAlarm("cam-1", "b");
    flushAlarms();
    EXPECT_EQ(1, state.calls.load());
    EXPECT_EQ(0, state.result.load());
}

}  // namespace
}  // namespace korva::testing
