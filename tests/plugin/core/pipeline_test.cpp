// The request pipeline of CProtocolBase: URL match, activation, digest check, device binding.
#include <gtest/gtest.h>

#include <regex>

#include "gateway/hostlib/host_auth.h"
#include "gateway/hostlib/host_config.h"
#include "gateway/hostlib/host_devices.h"
#include "gateway/testing/harness.h"
#include "test_handlers.h"

namespace QXKORVAProtocol {
namespace {

using korva::testing::HostFixture;
using korva::testing::TestRequest;
using QXHttpService::kMethodGet;
using testing::kProbeUrl;
using testing::Outcome;
using testing::ProbeHandler;
using testing::run;

const std::string kUnauthorizedHead =
    std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ResponseStatus>\n  <requestURL>") +
    kProbeUrl +
    "</requestURL>\n  <statusCode>401</statusCode>\n  <statusString>Unauthorized</statusString>\n"
    "  <subStatusCode>badAuthorization</subStatusCode>\n";

TestRequest withWrongPassword() {
    return TestRequest(
        kMethodGet, kProbeUrl, {},
        {{"Authorization", HostFixture::authorization("GET", kProbeUrl, "admin", "wrong")}});
}

void useAccounts(const korva::host::AuthSettings& settings) {
    korva::host::setAccounts({{HostFixture::kUser, HostFixture::kPassword, HostFixture::kDevice}},
                             settings);
}

class PipelineTest : public ::testing::Test {
  protected:
    HostFixture host;
    ProbeHandler handler{200};
};

TEST_F(PipelineTest, RequestsOfOtherHandlersAreLeftAlone) {
    const std::pair<unsigned char, std::string> requests[] = {
        {kMethodGet, "/KORVA/Test/probe/"},
        {kMethodGet, "/KORVA/Test/probes"},
        {kMethodGet, "/korva/test/probe"},
        {QXHttpService::kMethodPut, kProbeUrl},
    };
    for (const auto& [method, url] : requests) {
        const TestRequest request = HostFixture::authorizedRequest(method, url);
        const Outcome outcome = run(handler, request);
        EXPECT_EQ(outcome.status, -1) << url;
        EXPECT_EQ(outcome.response, "untouched") << url;
        EXPECT_TRUE(request.exchange().answerHeaders().empty()) << url;
    }
    EXPECT_EQ(handler.calls, 0);
}

TEST_F(PipelineTest, InactiveGatewayRefusesWhateverTheCredentials) {
    korva::host::setUserConfig(false, HostFixture::kRealm);
    const TestRequest requests[] = {HostFixture::authorizedRequest(kMethodGet, kProbeUrl),
                                    TestRequest(kMethodGet, kProbeUrl), withWrongPassword()};
    for (const TestRequest& request : requests) {
        const Outcome outcome = run(handler, request);
        EXPECT_EQ(outcome.status, 403);
        EXPECT_EQ(outcome.response, CProtocolBase::getResponseByError(0x40000007, kProbeUrl));
        EXPECT_FALSE(request.exchange().hasAnswerHeader("WWW-Authenticate"));
    }
    EXPECT_EQ(handler.calls, 0);
}

// Without credentials: the plug-in's own challenge with a fresh nonce each time, or the host's
// challenge unchanged when the host uses another algorithm.
TEST_F(PipelineTest, MissingCredentialsGetAChallenge) {
    const std::regex challenge(
        R"re(Digest qop="auth", realm="KORVA Test", nonce="([^"]{1,63})", stale="FALSE")re");
    std::string nonces[2];
    for (std::string& nonce : nonces) {
        const TestRequest request(kMethodGet, kProbeUrl);
        const Outcome outcome = run(handler, request);
        EXPECT_EQ(outcome.status, 401);
        EXPECT_EQ(outcome.response, kUnauthorizedHead + "</ResponseStatus>\n");
        const std::string header = request.exchange().answerHeader("WWW-Authenticate");
        std::smatch match;
        ASSERT_TRUE(std::regex_match(header, match, challenge)) << header;
        nonce = match[1];
    }
    EXPECT_NE(nonces[0], nonces[1]);

    korva::host::AuthSettings settings;
    settings.algorithm = korva::host::DigestAlgorithm::kSha256;
    useAccounts(settings);
    const TestRequest request(kMethodGet, kProbeUrl);
    EXPECT_EQ(run(handler, request).status, 401);
    const std::string header = request.exchange().answerHeader("WWW-Authenticate");
    EXPECT_NE(header.find("algorithm=SHA-256"), std::string::npos) << header;
    EXPECT_EQ(handler.calls, 0);
}

// Wrong credentials: the host's counters go into the document; with one attempt allowed the
// first failure locks the user.
TEST_F(PipelineTest, RejectedCredentialsCarryLockInformation) {
    const std::pair<int, const char*> cases[] = {
        {5,
         "  <lockStatus>unlocked</lockStatus>\n  <retryLoginTime>[1-9][0-9]*</retryLoginTime>\n"},
        {1,
         "  <lockStatus>locked</lockStatus>\n  <unlockTime>[1-9][0-9]*</unlockTime>\n"
         "  <retryLoginTime>0</retryLoginTime>\n"},
    };
    for (const auto& [maxAttempts, lockElements] : cases) {
        korva::host::AuthSettings settings;
        settings.maxAttempts = maxAttempts;
        useAccounts(settings);
        const TestRequest request = withWrongPassword();
        const Outcome outcome = run(handler, request);
        EXPECT_EQ(outcome.status, 401);
        EXPECT_TRUE(request.exchange().hasAnswerHeader("WWW-Authenticate"));
        ASSERT_EQ(outcome.response.substr(0, kUnauthorizedHead.size()), kUnauthorizedHead);
        EXPECT_TRUE(std::regex_match(outcome.response.substr(kUnauthorizedHead.size()),
                                     std::regex(std::string(lockElements) + "</ResponseStatus>\n")))
            << outcome.response;
    }
    EXPECT_EQ(handler.calls, 0);
}

// The device comes from the account, never from the query; a failing handler or a missing
// device is a 500.
TEST_F(PipelineTest, AuthenticatedRequestReachesTheHandlerWithTheBoundDevice) {
    const TestRequest request =
        HostFixture::authorizedRequest(kMethodGet, std::string(kProbeUrl) + "?devIndex=other");
    const Outcome outcome = run(handler, request);
    EXPECT_EQ(outcome.status, 200);
    EXPECT_EQ(outcome.response, "probe answer");
    EXPECT_EQ(handler.devIndex, HostFixture::kDevice);
    EXPECT_FALSE(request.exchange().hasAnswerHeader("WWW-Authenticate"));

    ProbeHandler failing(-1);
    const Outcome failed = run(failing, HostFixture::authorizedRequest(kMethodGet, kProbeUrl));
    EXPECT_EQ(failed.status, 500);
    EXPECT_EQ(failed.response, CProtocolBase::getResponseByError(0x30000014, kProbeUrl));

    // A detached bound device never reaches the handler.
    ASSERT_TRUE(korva::host::detachDevice(HostFixture::kDevice));
    korva::testing::LogCapture log;
    EXPECT_EQ(run(handler, HostFixture::authorizedRequest(kMethodGet, kProbeUrl)).response,
              failed.response);
    EXPECT_EQ(handler.calls, 1);
    EXPECT_TRUE(log.contains("[szDevIndx=dev-1]User Bound Device is not exist.", 5));
}

TEST(ClientAddress, FirstEntryOfForwardedFor) {
    const std::pair<const char*, std::string> cases[] = {
        {nullptr, ""},  // no header
        {"10.1.2.3, 192.168.0.1", "10.1.2.3"},
        {",10.1.2.3", ""},
        {"0123456789012345678901234567890123456789012345678901234567890123456789",
         "012345678901234567890123456789012345678901234567"},
    };
    for (const auto& [header, address] : cases) {
        std::map<std::string, std::string> headers;
        if (header != nullptr) headers["X-Forwarded-For"] = header;
        const TestRequest request(kMethodGet, kProbeUrl, {}, headers);
        EXPECT_EQ(CProtocolBase::getClientAddress(request.holder()), address);
    }
}

}  // namespace
}  // namespace QXKORVAProtocol
