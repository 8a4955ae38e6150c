// The test harness itself: plug-in tests rely on request copies that keep their body and on
// credentials that the host's digest check accepts.
#include "gateway/testing/harness.h"

#include <gtest/gtest.h>

#include <cstring>

#include "host/device_mgr.h"
#include "host/digest_check.h"

namespace korva::testing {
namespace {

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
