// The test harness itself: plug-in tests rely on exchanges found by handle, on request copies
// that keep their body, and on credentials that the host's digest check accepts.
#include "gateway/testing/harness.h"

#include <gtest/gtest.h>

#include <cstring>

#include "host/device_mgr.h"
#include "host/digest_check.h"

namespace korva::testing {
namespace {

using QXHttpService::CHttpExchange;

TEST(RecordingExchangeTest, IsReachableByHandleUntilDestroyed) {
    int handle = -1;
    {
        TestRequest request(QXHttpService::kMethodGet, "/KORVA/x?y=1", "", {{"X-Test", "v"}});
        handle = request.handle();
        ASSERT_GT(handle, 0);
        CHttpExchange rebuilt(handle);
        ASSERT_TRUE(rebuilt.isAttached());
        EXPECT_EQ("/KORVA/x?y=1", rebuilt.getUrl());
        EXPECT_EQ("v", rebuilt.getHead("x-test"));
        rebuilt.setHead("Content-Type", "text/plain");
        rebuilt.setHead("content-type", "application/xml");  // replaces, whatever the case
        rebuilt.setStatus(201);
        EXPECT_EQ(3, rebuilt.response("abc", 3));
        EXPECT_EQ(0, rebuilt.response(nullptr, 0));

        RecordingExchange& exchange = request.exchange();
        EXPECT_EQ(201, exchange.status());
        EXPECT_EQ("application/xml", exchange.answerHeader("Content-Type"));
        EXPECT_EQ(1u, exchange.answerHeaders().size());
        EXPECT_EQ((std::vector<std::string>{"abc", ""}), exchange.writes());

        exchange.setRespondResult([](int length) { return length - 1; });
        EXPECT_EQ(3, rebuilt.response("defg", 4));
        exchange.breakLink();
        EXPECT_EQ(CHttpExchange::kLinkBroken, rebuilt.response("h", 1));
        EXPECT_EQ("abcdefgh", exchange.written());
    }
    EXPECT_FALSE(CHttpExchange(handle).isAttached());
}

TEST(TestRequestTest, CopiesKeepTheirOwnBody) {
    auto make = [] { return TestRequest(QXHttpService::kMethodPut, "/a", "<x>short</x>"); };
    std::vector<TestRequest> requests;
    for (int i = 0; i < 8; ++i) requests.push_back(make());  // reallocation copies them
    for (const TestRequest& request : requests) {
        ASSERT_NE(nullptr, request.holder().body);
        EXPECT_STREQ("<x>short</x>", request.holder().body);
        EXPECT_EQ(request.handle(), request.holder().exchange->getHttpHandle());
    }
}

int checkDigest(const std::string& method, const std::string& authorization,
                DigestCheckResult* result) {
    DigestCheckRequest request{};
    std::strncpy(request.authorization, authorization.c_str(), sizeof request.authorization - 1);
    *result = DigestCheckResult{};
    return QX_KORVAMgrBus_CheckDigest(result, method, &request);
}

TEST(HostFixtureTest, AuthorizationIsAcceptedByTheHostsDigestCheck) {
    HostFixture host;
    DigestCheckResult result;
    EXPECT_EQ(
        kDigestAuthenticated,
        checkDigest("GET", HostFixture::authorization("GET", "/KORVA/System/deviceInfo"), &result));
    EXPECT_STREQ(HostFixture::kDevice, result.devIndex);

    TestRequest request =
        HostFixture::authorizedRequest(QXHttpService::kMethodPut, "/KORVA/Streaming/channels/1");
    EXPECT_EQ(kDigestAuthenticated,
              checkDigest("PUT", request.exchange().header("Authorization"), &result));

    EXPECT_EQ(
        kDigestRejected,
        checkDigest("GET", HostFixture::authorization("GET", "/a", "admin", "wrong"), &result));
    EXPECT_NE(nullptr, QX_DeviceMgr_GetDevice(HostFixture::kDevice));
}

}  // namespace
}  // namespace korva::testing
