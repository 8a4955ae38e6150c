// Opening streams: which requests are taken, the single subscription, the per-device limit,
// stream ids, concurrent requests, stop, and the path through the entry point.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>

#include "plugin/entry/plugin_entry.h"
#include "tests/plugin/alert/alert_test_support.h"

namespace QXKORVAProtocol::alert_test {
namespace {

TEST(AlertStreamMatch, OnlyAnExactGetOfTheStreamPath) {
    CEventPto service;
    using QXHttpService::kMethodGet;
    const std::pair<std::string, unsigned char> declined[] = {
        {std::string(kStreamUrl) + "/", kMethodGet},
        {std::string(kStreamUrl) + "?a=1", kMethodGet},
        {"/KORVA/Event/notification/alertstream", kMethodGet},
        {kStreamUrl, QXHttpService::kMethodPost},
    };
    EXPECT_EQ(service.matchURL(kStreamUrl, kMethodGet), 0);
    for (const auto& [url, method] : declined) {
        EXPECT_EQ(service.matchURL(url, method), -1) << url << " " << int(method);
    }
}

using AlertStream = AlertServiceTest;

// Every request takes a stream id, refused ones included.
TEST_F(AlertStream, OneSubscriptionTwoStreamsPerDeviceAndIdsForEveryRequest) {
    const std::pair<const char*, int> requests[] = {
        {"admin", 200}, {"admin", 200}, {"admin", 403}, {"user2", 200}};
    std::vector<StreamRequest> streams;
    korva::testing::LogCapture log;
    for (const auto& [user, status] : requests) {
        streams.push_back(requestStream(service, user));
        EXPECT_EQ(streams.back().status, status) << streams.size();
        EXPECT_EQ(streams.back().asyncReply, status == 200 ? 1 : 0) << streams.size();
    }
    EXPECT_NE(streams[2].response.find("noMoreTasksCanBeAdded"), std::string::npos);
    EXPECT_EQ(streams[2].exchange().respondCount(), 0);
    EXPECT_TRUE(log.contains("[devIndx=dev-1]This device alertstream number is over max value."));
    ASSERT_EQ(korva::host::listSubscriptions().size(), 1u);
    EXPECT_TRUE(korva::host::listSubscriptions()[0].started);
    EXPECT_EQ(service.getAlarmSubscribeId(), korva::host::listSubscriptions()[0].id);
    EXPECT_EQ(subscribedDevices(), (Devices{"dev-1", "dev-2"}));
    std::vector<int> ids;
    for (const auto& session : service.streams().snapshot()) ids.push_back(session->getStreamId());
    EXPECT_EQ(ids, (std::vector<int>{0, 1, 3}));
}

TEST_F(AlertStream, BusRefusalAnswersInvalidOperation) {
    const TestRequest request(QXHttpService::kMethodGet, kStreamUrl);
    int asyncReply = 0;
    std::string response;  // the bus refuses an empty device index
    EXPECT_EQ(service.procAlertStream(&response, &asyncReply, request.holder(), ""), 403);
    EXPECT_NE(response.find("invalidOperation"), std::string::npos);
    EXPECT_EQ(asyncReply, 0);
    EXPECT_EQ(service.streams().size(), 0u);
}

TEST_F(AlertStream, ConcurrentRequestsKeepTheLimitAndOneSubscription) {
    const Devices users = {"admin", "user2", "user3"};
    std::vector<StreamRequest> results(users.size() * 6);
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
    const auto opened = std::count_if(results.begin(), results.end(),
                                      [](const StreamRequest& r) { return r.status == 200; });
    EXPECT_EQ(opened, 6);
    for (const char* device : {"dev-1", "dev-2", "dev-3"}) {
        EXPECT_EQ(service.streams().countByDevice(device), 2u) << device;
    }
    Devices devices = subscribedDevices();
    std::sort(devices.begin(), devices.end());
    EXPECT_EQ(devices, (Devices{"dev-1", "dev-2", "dev-3"}));
}

TEST_F(AlertStream, StopForgetsTheSubscriptionEvenWhenTheBusRefuses) {
    ASSERT_EQ(requestStream(service).status, 200);
    korva::host::resetAlarmBus();
    korva::testing::LogCapture log;
    EXPECT_EQ(service.stop(), 0);
    EXPECT_EQ(service.getAlarmSubscribeId(), -1);
    EXPECT_EQ(service.getHeartBeatTimerId(), CEventPto::kNoTimer);
    EXPECT_TRUE(log.contains("QX_AlarmBus_UnSubscribe failed", 5));
}

// The process-wide service, reached through the exported entry points as the host does.
TEST_F(AlertStream, EntryPointOpensAStreamOnTheSingleton) {
    ASSERT_EQ(QX_Protocol_Init(), 1);
    CEventPto* singleton = CEventPto::getInstance();
    const TestRequest request =
        HostFixture::authorizedRequest(QXHttpService::kMethodGet, kStreamUrl);
    int handled = 0, asyncReply = 0;
    std::string response;
    EXPECT_EQ(QX_Protocol_HTTPProcess(&handled, &response, &asyncReply, request.holder()), 200);
    EXPECT_EQ(asyncReply, 1);
    korva::host::publishAlarm("dev-1", alarmJson("dev-1"));
    EXPECT_TRUE(request.exchange().waitForResponds(2));
    EXPECT_EQ(QX_Protocol_Uninit(), 0);
    EXPECT_EQ(singleton->getAlarmSubscribeId(), -1);
    singleton->streams().clear();  // leave the singleton stopped and empty
}

}  // namespace
}  // namespace QXKORVAProtocol::alert_test
