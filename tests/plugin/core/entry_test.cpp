// The exported entry points, linked in: the no-handler answer and the alert service singleton.
#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

#include "gateway/testing/harness.h"
#include "plugin/alert/event_pto.h"
#include "plugin/entry/plugin_entry.h"

namespace QXKORVAProtocol {
namespace {

using korva::testing::HostFixture;

TEST(Entry, UnclaimedRequestGetsTheNoHandlerAnswerAndLeavesTheExchangeAlone) {
    HostFixture host;
    for (const char* url : {"/KORVA/NoSuch/resource", "/", "/KORVA/Test/probe"}) {
        const auto request = HostFixture::authorizedRequest(QXHttpService::kMethodGet, url);
        int handled = 7, asyncReply = 0;
        std::string response;
        EXPECT_EQ(QX_Protocol_HTTPProcess(&handled, &response, &asyncReply, request.holder()), -1);
        EXPECT_EQ(handled, 0) << url;
        EXPECT_EQ(asyncReply, 0) << url;
        EXPECT_EQ(response,
                  "{\"errorCode\":1073741830,\"errorMsg\":\"Invalid operation.\",\"statusCode\":4,"
                  "\"statusString\":\"Invalid Operation\",\"subStatusCode\":\"invalidOperation\"}"
                  "\n")
            << url;
        EXPECT_EQ(request.exchange().status(), 0) << url;
        EXPECT_TRUE(request.exchange().answerHeaders().empty()) << url;
    }
}

// Each test runs in its own process, so these threads race for the first creation; stopping
// keeps the same instance.
TEST(Entry, ConcurrentFirstUsersShareOneAlertServiceThatOutlivesStop) {
    std::vector<CEventPto*> instances(8, nullptr);
    std::vector<std::thread> threads;
    for (auto& slot : instances) threads.emplace_back([&slot] { slot = CEventPto::getInstance(); });
    for (auto& thread : threads) thread.join();
    EXPECT_NE(instances[0], nullptr);
    EXPECT_EQ(std::set<CEventPto*>(instances.begin(), instances.end()).size(), 1u);

    HostFixture host;
    EXPECT_EQ(QX_Protocol_Init(), 1);
    EXPECT_EQ(QX_Protocol_Uninit(), 0);
    EXPECT_EQ(CEventPto::getInstance(), instances[0]);
}

}  // namespace
}  // namespace QXKORVAProtocol
