// The request pipeline of CProtocolBase: URL match, activation, digest check, device binding.
#include <gtest/gtest.h>

#include <regex>

#include "gateway/hostlib/host_control.h"
#include "gateway/testing/harness.h"
#include "test_handlers.h"

namespace QXKORVAProtocol {
namespace {

using korva::testing::HostFixture;
using korva::testing::LogCapture;
using korva::testing::TestRequest;
using QXHttpService::kMethodGet;
using testing::kProbeUrl;
using testing::Outcome;
using testing::run;
using testing::ProbeHandler;

std::string unauthorizedHead(const std::string& url) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ResponseStatus>\n  <requestURL>" + url +
           "</requestURL>\n  <statusCode>401</statusCode>\n"
           "  <statusString>Unauthorized</statusString>\n"
           "  <subStatusCode>badAuthorization</subStatusCode>\n";
}

TestRequest requestWithAuthorization(const std::string& authorization) {
    return TestRequest(kMethodGet, kProbeUrl, {}, {{"Authorization", authorization}});
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
    const TestRequest requests[] = {
        HostFixture::authorizedRequest(kMethodGet, kProbeUrl),
        TestRequest(kMethodGet, kProbeUrl),
        requestWithAuthorization(HostFixture::authorization("GET", kProbeUrl, "admin", "wrong")),
    };
    for (const TestRequest& request : requests) {
        const Outcome outcome = run(handler, request);
        EXPECT_EQ(outcome.status, 403);
        EXPECT_EQ(outcome.response, CProtocolBase::getResponseByError(0x40000007, kProbeUrl));
        EXPECT_NE(outcome.response.find("<subStatusCode>notActivated</subStatusCode>"),
                  std::string::npos);
        EXPECT_FALSE(request.exchange().hasAnswerHeader("WWW-Authenticate"));
    }
    EXPECT_EQ(handler.calls, 0);
}

TEST_F(PipelineTest, MissingCredentialsGetAFreshChallengeOfThePlugIn) {
    const std::regex challenge(
        R"re(Digest qop="auth", realm="KORVA Test", nonce="([^"]+)", stale="FALSE")re");
    std::string nonces[2];
    for (std::string& nonce : nonces) {
        const TestRequest request(kMethodGet, kProbeUrl);
        const Outcome outcome = run(handler, request);
        EXPECT_EQ(outcome.status, 401);
        EXPECT_EQ(outcome.response, unauthorizedHead(kProbeUrl) + "</ResponseStatus>\n");
        const std::string header = request.exchange().answerHeader("WWW-Authenticate");
        std::smatch match;
        ASSERT_TRUE(std::regex_match(header, match, challenge)) << header;
        nonce = match[1];
        EXPECT_LT(nonce.size(), 64u);
    }
    EXPECT_NE(nonces[0], nonces[1]);
    EXPECT_EQ(handler.calls, 0);
}

TEST_F(PipelineTest, HostChallengeIsSentUnchanged) {
    korva::host::AuthSettings settings;
    settings.algorithm = korva::host::DigestAlgorithm::kSha256;
    korva::host::setAccounts({{HostFixture::kUser, HostFixture::kPassword, HostFixture::kDevice}},
                             settings);
    const TestRequest request(kMethodGet, kProbeUrl);
    const Outcome outcome = run(handler, request);
    EXPECT_EQ(outcome.status, 401);
    EXPECT_EQ(outcome.response, unauthorizedHead(kProbeUrl) + "</ResponseStatus>\n");
    const std::string header = request.exchange().answerHeader("WWW-Authenticate");
    EXPECT_NE(header.find("algorithm=SHA-256"), std::string::npos) << header;
    EXPECT_NE(header.find("realm=\"KORVA Test\""), std::string::npos) << header;
}

// Wrong credentials: the host's counters go into the document; with one attempt allowed the
// first failure locks the user.
TEST_F(PipelineTest, RejectedCredentialsCarryLockInformation) {
    const struct {
        int maxAttempts;
        const char* lockElements;
    } cases[] = {
        {5,
         "  <lockStatus>unlocked</lockStatus>\n  <retryLoginTime>[1-9][0-9]*</retryLoginTime>\n"},
        {1,
         "  <lockStatus>locked</lockStatus>\n  <unlockTime>[1-9][0-9]*</unlockTime>\n"
         "  <retryLoginTime>0</retryLoginTime>\n"},
    };
    const std::string head = unauthorizedHead(kProbeUrl);
    for (const auto& c : cases) {
        korva::host::AuthSettings settings;
        settings.maxAttempts = c.maxAttempts;
        korva::host::setAccounts(
            {{HostFixture::kUser, HostFixture::kPassword, HostFixture::kDevice}}, settings);
        const TestRequest request = requestWithAuthorization(
            HostFixture::authorization("GET", kProbeUrl, "admin", "wrong"));
        const Outcome outcome = run(handler, request);
        EXPECT_EQ(outcome.status, 401);
        EXPECT_TRUE(request.exchange().hasAnswerHeader("WWW-Authenticate"));
        ASSERT_EQ(outcome.response.substr(0, head.size()), head);
        EXPECT_TRUE(
            std::regex_match(outcome.response.substr(head.size()),
                             std::regex(std::string(c.lockElements) + "</ResponseStatus>\n")))
            << outcome.response;
    }
    EXPECT_EQ(handler.calls, 0);
}

// The device comes from the account, never from the query.
TEST_F(PipelineTest, AuthenticatedRequestReachesTheHandlerWithTheBoundDevice) {
    ProbeHandler created(201);
    const TestRequest request =
        HostFixture::authorizedRequest(kMethodGet, std::string(kProbeUrl) + "?devIndex=other");
    const Outcome outcome = run(created, request);
    EXPECT_EQ(outcome.status, 201);
    EXPECT_EQ(outcome.response, "probe answer");
    EXPECT_EQ(created.calls, 1);
    EXPECT_EQ(created.devIndex, HostFixture::kDevice);
    EXPECT_FALSE(request.exchange().hasAnswerHeader("WWW-Authenticate"));
}

TEST_F(PipelineTest, HandlerFailureBecomesAnInternalError) {
    ProbeHandler failing(-1);
    const Outcome outcome = run(failing, HostFixture::authorizedRequest(kMethodGet, kProbeUrl));
    EXPECT_EQ(outcome.status, 500);
    EXPECT_EQ(outcome.response, CProtocolBase::getResponseByError(0x30000014, kProbeUrl));
    EXPECT_EQ(failing.calls, 1);
}

TEST_F(PipelineTest, DetachedBoundDeviceIsAnInternalErrorWithoutTheHandler) {
    ASSERT_TRUE(korva::host::detachDevice(HostFixture::kDevice));
    LogCapture log;
    const Outcome outcome = run(handler, HostFixture::authorizedRequest(kMethodGet, kProbeUrl));
    EXPECT_EQ(outcome.status, 500);
    EXPECT_EQ(outcome.response, CProtocolBase::getResponseByError(0x30000014, kProbeUrl));
    EXPECT_EQ(handler.calls, 0);
    const std::regex line(
        R"(\[QXKORVAProtocol::CProtocolBase::proc\(\d+\)\] \[szDevIndx=dev-1\]User Bound Device is not exist\.)");
    bool found = false;
    for (const auto& entry : log.lines()) {
        found = found ||
                (entry.level == 5 && entry.module == "QXW" && std::regex_search(entry.text, line));
    }
    EXPECT_TRUE(found);
}

TEST(ClientAddress, FirstEntryOfForwardedFor) {
    const struct {
        const char* header;  // null: no header
        std::string address;
    } cases[] = {
        {nullptr, ""},
        {"10.1.2.3, 192.168.0.1", "10.1.2.3"},
        {"10.1.2.3", "10.1.2.3"},
        {"a,b,c", "a"},
        {",10.1.2.3", ""},
        {"2001:db8::1", "2001:db8::1"},
        {"0123456789012345678901234567890123456789012345678901234567890123456789",
         "012345678901234567890123456789012345678901234567"},
    };
    for (const auto& c : cases) {
        std::map<std::string, std::string> headers;
        if (c.header != nullptr) headers["X-Forwarded-For"] = c.header;
        const TestRequest request(kMethodGet, kProbeUrl, {}, headers);
        EXPECT_EQ(CProtocolBase::getClientAddress(request.holder()), c.address)
            << (c.header ? c.header : "(none)");
    }
}

}  // namespace
}  // namespace QXKORVAProtocol
