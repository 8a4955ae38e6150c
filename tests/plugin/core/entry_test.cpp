// The exported entry points, linked in: the no-handler answer and the alert service singleton.
#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

#include "gateway/testing/harness.h"
#include "plugin/alert/event_pto.h"
#include "plugin/entry/plugin_entry.h"
#include "plugin/relay/dev_cfg_base.h"
#include "plugin/relay/handler_order.h"

namespace QXKORVAProtocol {
namespace {

using korva::testing::HostFixture;
using korva::testing::TestRequest;

constexpr char kNoHandlerAnswer[] =
    "{\"errorCode\":1073741830,\"errorMsg\":\"Invalid operation.\",\"statusCode\":4,"
    "\"statusString\":\"Invalid Operation\",\"subStatusCode\":\"invalidOperation\"}\n";

TEST(Entry, UnclaimedRequestGetsTheNoHandlerAnswer) {
    HostFixture host;
    for (const char* url : {"/KORVA/NoSuch/resource", "/", "/KORVA/Test/probe"}) {
        const TestRequest request = HostFixture::authorizedRequest(QXHttpService::kMethodGet, url);
        int handled = 7;
        int asyncReply = 0;
        std::string response = "untouched";
        EXPECT_EQ(QX_Protocol_HTTPProcess(&handled, &response, &asyncReply, request.holder()), -1)
            << url;
        EXPECT_EQ(handled, 0) << url;
        EXPECT_EQ(asyncReply, 0) << url;
        EXPECT_EQ(response, kNoHandlerAnswer) << url;
        // The 403 is implied by the body; the exchange itself is left alone.
        EXPECT_EQ(request.exchange().status(), 0) << url;
        EXPECT_TRUE(request.exchange().answerHeaders().empty()) << url;
    }
}

TEST(Entry, AnswerChainKnowsTheSixHandlersInOrder) {
    size_t count = 0;
    const DevCfgHandlerFactory* factories = devCfgHandlerOrder(&count);
    ASSERT_EQ(count, 6u);
    const char* expected[] = {"CChannelCfg", "CDevMaintain", "CEventCfg",
                              "CImageCfg",   "CPTZCtrl",     "CRecordOperation"};
    for (size_t i = 0; i < count; ++i) {
        const std::unique_ptr<CDevCfgBase> handler = factories[i]();
        ASSERT_NE(handler, nullptr);
        const std::string type = typeid(*handler).name();
        EXPECT_NE(type.find(expected[i]), std::string::npos) << i << " " << type;
    }
}

// Each test runs in its own process, so these threads race for the first creation.
TEST(Entry, ConcurrentFirstUsersShareOneAlertService) {
    std::vector<CEventPto*> instances(8, nullptr);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < instances.size(); ++i) {
        threads.emplace_back([&instances, i] { instances[i] = CEventPto::getInstance(); });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_NE(instances[0], nullptr);
    EXPECT_EQ(std::set<CEventPto*>(instances.begin(), instances.end()).size(), 1u);
}

TEST(Entry, StartAndStop) {
    HostFixture host;
    EXPECT_EQ(QX_Protocol_Init(), 1);
    CEventPto* running = CEventPto::getInstance();
    EXPECT_EQ(QX_Protocol_Uninit(), 0);
    EXPECT_EQ(CEventPto::getInstance(), running);
}

}  // namespace
}  // namespace QXKORVAProtocol
