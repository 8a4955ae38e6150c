// Opening streams: which requests are taken, the single subscription, the per-device limit,
// stream ids, concurrent requests, stop, and the whole path through the entry point.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>

#include "plugin/entry/plugin_entry.h"
#include "tests/plugin/alert/alert_test_support.h"

namespace QXKORVAProtocol::alert_test {
namespace {

using Devices = std::vector<std::string>;

TEST(AlertStreamMatch, OnlyAnExactGetOfTheStreamPath) {
    CEventPto service;
    const struct {
        const char* url;
        unsigned char method;
        int expected;
    } cases[] = {
        {kStreamUrl, QXHttpService::kMethodGet, 0},
        {"/KORVA/Event/notification/alertStream/", QXHttpService::kMethodGet, -1},
        {"/KORVA/Event/notification/alertStream?x=1", QXHttpService::kMethodGet, -1},
        {"/KORVA/Event/notification/alertstream", QXHttpService::kMethodGet, -1},
        {"/KORVA/Event/notification/alertStreamX", QXHttpService::kMethodGet, -1},
        {"/KORVA/Event/notification", QXHttpService::kMethodGet, -1},
        {kStreamUrl, QXHttpService::kMethodPost, -1},
        {kStreamUrl, QXHttpService::kMethodPut, -1},
        {kStreamUrl, QXHttpService::kMethodOther, -1},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(service.matchURL(c.url, c.method), c.expected) << c.url << " " << int(c.method);
    }
}

using AlertStream = AlertServiceTest;

TEST_F(AlertStream, DeclinedRequestIsNotTouched) {
    const TestRequest request =
        HostFixture::authorizedRequest(QXHttpService::kMethodPost, std::string(kStreamUrl));
    int handled = 1;
    int asyncReply = 0;
    std::string response = "untouched";
    EXPECT_EQ(service.proc(&handled, &response, &asyncReply, request.holder()), -1);
    EXPECT_EQ(response, "untouched");
    EXPECT_EQ(korva::host::listSubscriptions().size(), 0u);
}

TEST_F(AlertStream, ExchangeThatNoLongerMatchesIsAnInternalError) {
    const TestRequest request(QXHttpService::kMethodGet, "/KORVA/other");
    int asyncReply = 0;
    std::string response;
    EXPECT_EQ(service.procProtocol(nullptr, &response, &asyncReply, request.holder(), "dev-1"),
              500);
    EXPECT_NE(response.find("internalError"), std::string::npos) << response;
    EXPECT_EQ(asyncReply, 0);
    EXPECT_EQ(service.streams().size(), 0u);
}

TEST_F(AlertStream, FirstSubscribesOtherDeviceIsAddedSameDeviceChangesNothing) {
    const StreamRequest first = requestStream(service);
    ASSERT_EQ(first.status, 200);
    auto subscriptions = korva::host::listSubscriptions();
    ASSERT_EQ(subscriptions.size(), 1u);
    EXPECT_TRUE(subscriptions[0].started);
    EXPECT_EQ(subscriptions[0].devices, Devices{"dev-1"});
    EXPECT_EQ(service.getAlarmSubscribeId(), subscriptions[0].id);

    const StreamRequest other = requestStream(service, "user2");
    const StreamRequest again = requestStream(service);
    ASSERT_EQ(other.status, 200);
    ASSERT_EQ(again.status, 200);
    subscriptions = korva::host::listSubscriptions();
    ASSERT_EQ(subscriptions.size(), 1u);
    EXPECT_EQ(subscriptions[0].devices, (Devices{"dev-1", "dev-2"}));
    EXPECT_EQ(service.streams().size(), 3u);
}

TEST_F(AlertStream, ThirdStreamOfADeviceIsRefusedUntilOneIsGone) {
    const StreamRequest first = requestStream(service);
    const StreamRequest second = requestStream(service);
    korva::testing::LogCapture log;
    const StreamRequest third = requestStream(service);
    EXPECT_EQ(third.status, 403);
    EXPECT_EQ(third.asyncReply, 0);
    EXPECT_NE(third.response.find("noMoreTasksCanBeAdded"), std::string::npos) << third.response;
    EXPECT_FALSE(third.exchange().streaming());
    EXPECT_TRUE(
        log.contains("[devIndx=dev-1]This device alertstream number is over max value.", 5));
    EXPECT_EQ(requestStream(service, "user2").status, 200);  // other devices are not limited

    first.exchange().breakLink();
    korva::host::publishAlarm("dev-1", alarmJson("dev-1"));
    ASSERT_TRUE(waitUntil([&] { return service.streams().countByDevice("dev-1") == 1; }));
    EXPECT_EQ(requestStream(service).status, 200);
}

TEST_F(AlertStream, StreamIdsCountEveryRequestFailedOnesIncluded) {
    const StreamRequest a = requestStream(service);
    const StreamRequest b = requestStream(service);
    const StreamRequest refused = requestStream(service);
    const StreamRequest c = requestStream(service, "user2");
    ASSERT_EQ(refused.status, 403);
    std::vector<int> ids;
    for (const auto& session : service.streams().snapshot()) ids.push_back(session->getStreamId());
    ASSERT_EQ(ids.size(), 3u);
    EXPECT_EQ(ids[0], 0) << "a new service hands out 0 first";
    EXPECT_EQ(ids[1], 1);
    EXPECT_EQ(ids[2], 3);
}

TEST_F(AlertStream, BusRefusalsAnswerInvalidOperation) {
    // The bus refuses an empty device index, both for a subscription and for an added device.
    for (bool subscribed : {false, true}) {
        if (subscribed) {
            ASSERT_EQ(requestStream(service).status, 200);
        }
        korva::testing::LogCapture log;
        const TestRequest request(QXHttpService::kMethodGet, kStreamUrl);
        int asyncReply = 0;
        std::string response;
        EXPECT_EQ(service.procAlertStream(&response, &asyncReply, request.holder(), ""), 403);
        EXPECT_NE(response.find("invalidOperation"), std::string::npos) << response;
        EXPECT_EQ(asyncReply, 0);
        EXPECT_EQ(request.exchange().respondCount(), 0);
        EXPECT_TRUE(log.contains(
            subscribed ? "QX_AlarmBus_AddDevice failed." : "QX_AlarmBus_Subscribe failed.", 5));
        EXPECT_EQ(service.streams().size(), subscribed ? 1u : 0u);
    }
}

// Requests that arrive together: a device never gets a third stream and the plug-in never
// makes a second subscription.
TEST_F(AlertStream, ConcurrentRequestsKeepTheLimitAndOneSubscription) {
    constexpr int kPerUser = 6;
    const std::vector<std::string> users = {"admin", "user2", "user3"};
    std::vector<StreamRequest> results(users.size() * kPerUser);
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (size_t i = 0; i < results.size(); ++i) {
        threads.emplace_back([&, i] {
            while (!go) std::this_thread::yield();
            results[i] = requestStream(service, users[i % users.size()]);
        });
    }
    go = true;
    for (auto& thread : threads) thread.join();

    for (const std::string& user : users) {
        int opened = 0;
        int refused = 0;
        for (size_t i = 0; i < results.size(); ++i) {
            if (users[i % users.size()] != user) continue;
            if (results[i].status == 200) ++opened;
            if (results[i].status == 403) ++refused;
        }
        EXPECT_EQ(opened, 2) << user;
        EXPECT_EQ(refused, kPerUser - 2) << user;
        EXPECT_EQ(service.streams().countByDevice(deviceOf(user)), 2u) << user;
    }
    const auto subscriptions = korva::host::listSubscriptions();
    ASSERT_EQ(subscriptions.size(), 1u);
    Devices devices = subscriptions[0].devices;
    std::sort(devices.begin(), devices.end());
    EXPECT_EQ(devices, (Devices{"dev-1", "dev-2", "dev-3"}));
}

TEST_F(AlertStream, StopEndsTheSubscriptionEvenWhenTheBusRefuses) {
    ASSERT_EQ(requestStream(service).status, 200);
    service.stop();
    EXPECT_EQ(service.getAlarmSubscribeId(), -1);
    EXPECT_TRUE(korva::host::listSubscriptions().empty());
    EXPECT_EQ(service.getHeartBeatTimerId(), CEventPto::kNoTimer);
    EXPECT_EQ(service.getAbnormalTimerId(), CEventPto::kNoTimer);

    ASSERT_EQ(service.start(), 0);
    service.streams().clear();
    ASSERT_EQ(requestStream(service).status, 200);
    korva::host::resetAlarmBus();
    korva::testing::LogCapture log;
    EXPECT_EQ(service.stop(), 0);
    EXPECT_EQ(service.getAlarmSubscribeId(), -1);
    EXPECT_TRUE(log.contains("QX_AlarmBus_UnSubscribe failed", 5));
}

// The process-wide service, reached through the exported entry points as the host does.
TEST(AlertStreamEntry, EntryPointOpensAStreamOnTheSingleton) {
    AlertHost host;
    korva::host::useManualClock(5000);
    ASSERT_EQ(QX_Protocol_Init(), 1);
    CEventPto* service = CEventPto::getInstance();
    const TestRequest request =
        HostFixture::authorizedRequest(QXHttpService::kMethodGet, kStreamUrl);
    int handled = 0;
    int asyncReply = 0;
    std::string response;
    EXPECT_EQ(QX_Protocol_HTTPProcess(&handled, &response, &asyncReply, request.holder()), 200);
    EXPECT_EQ(handled, 1);
    EXPECT_EQ(asyncReply, 1);
    EXPECT_TRUE(request.exchange().streaming());
    EXPECT_EQ(service->streams().countByDevice("dev-1"), 1u);

    korva::host::publishAlarm("dev-1", alarmJson("dev-1", R"("eventType":"IO")"));
    EXPECT_TRUE(request.exchange().waitForResponds(2));
    EXPECT_EQ(QX_Protocol_Uninit(), 0);
    EXPECT_EQ(service->getAlarmSubscribeId(), -1);
    service->streams().clear();  // leave the singleton stopped and empty
}

}  // namespace
}  // namespace QXKORVAProtocol::alert_test
