// The device relay: procProtocol's hand-over to the bus, and deviceCfgCallBack's answers.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "gateway/hostlib/host_control.h"
#include "gateway/testing/harness.h"
#include "plugin/relay/device_cfg_context.h"
#include "test_handlers.h"

namespace QXKORVAProtocol {
namespace {

using korva::testing::HostFixture;
using korva::testing::LogCapture;
using korva::testing::ScriptedDevice;
using korva::testing::TestRequest;
using QXHttpService::kMethodGet;
using QXHttpService::kMethodPut;
using testing::kRelayUrl;
using testing::Outcome;
using testing::run;
using testing::RelayHandler;

std::string errorDocument(uint32_t errorNumber) {
    return CProtocolBase::getResponseByError(static_cast<int>(errorNumber), kRelayUrl);
}

// A context as procProtocol hands it to the bus: the callback releases it.
DeviceCfgContext* contextFor(const TestRequest& request, void* handler) {
    DeviceCfgContext* context = allocateDeviceCfgContext();
    context->httpHandle = request.handle();
    context->handler = handler;
    return context;
}

class RelayTest : public ::testing::Test {
  protected:
    HostFixture host;
    RelayHandler handler;
};

TEST_F(RelayTest, AcceptedRelayAnswersLaterOnTheExchange) {
    host.device()->setMode(ScriptedDevice::Mode::kDeferred);
    const TestRequest request =
        HostFixture::authorizedRequest(kMethodPut, kRelayUrl, "<Probe>1</Probe>");
    LogCapture log;
    const Outcome outcome = run(handler, request);
    EXPECT_EQ(outcome.status, 200);
    EXPECT_EQ(outcome.asyncReply, 1);
    EXPECT_EQ(outcome.response, "untouched");
    EXPECT_EQ(handler.preparedTimeoutMs, 10000);
    EXPECT_EQ(handler.preparedHandle, request.handle());
    EXPECT_TRUE(handler.preparedOwnExchange);
    EXPECT_TRUE(log.contains("[url=/KORVA/Test/relay?format=json&devIndex=dev-1,handle=" +
                                 std::to_string(request.handle()) +
                                 "]QX_DeviceCfgBus_ProcessAsyn start",
                             3));

    ASSERT_TRUE(host.device()->waitForRequests(1));
    const auto relayed = host.device()->requests().at(0);
    EXPECT_EQ(relayed.method, kMethodPut);
    EXPECT_EQ(relayed.url, "/KORVA/Test/relay?format=json&devIndex=dev-1");
    EXPECT_EQ(relayed.body, "{\"probe\":true}\n");
    EXPECT_EQ(request.exchange().respondCount(), 0);

    // The device refuses the operation: its status goes out as it is, without conversion.
    ASSERT_TRUE(host.device()->replyPending(
        0, R"({"statusCode":4,"statusString":"Invalid Operation","errorCode":1073741830})"));
    ASSERT_TRUE(request.exchange().waitForResponds(1));
    EXPECT_EQ(request.exchange().status(), 403);
    EXPECT_EQ(request.exchange().answerHeader("Content-Type"), "application/xml");
    EXPECT_EQ(request.exchange().written(), errorDocument(0x40000006));
}

TEST_F(RelayTest, ConversionRefusalIsAnsweredAtOnce) {
    handler.convertResult = 9;
    const Outcome outcome = run(handler, HostFixture::authorizedRequest(kMethodGet, kRelayUrl));
    EXPECT_EQ(outcome.status, 500);
    EXPECT_EQ(outcome.asyncReply, 0);
    EXPECT_EQ(outcome.response, errorDocument(0x30000014));
    EXPECT_TRUE(host.device()->requests().empty());
}

TEST_F(RelayTest, PreparationRefusalReleasesTheContext) {
    handler.prepareResult = 0;
    LogCapture log;
    const Outcome outcome = run(handler, HostFixture::authorizedRequest(kMethodGet, kRelayUrl));
    EXPECT_EQ(outcome.status, 400);
    EXPECT_EQ(outcome.asyncReply, 0);
    EXPECT_EQ(outcome.response, errorDocument(0x60000001));
    EXPECT_TRUE(log.contains("[QXKORVAProtocol::CDevCfgBase::procProtocol(", 5));
    EXPECT_TRUE(log.contains(")] no resouce.", 5));
    EXPECT_TRUE(host.device()->requests().empty());
}

TEST_F(RelayTest, HostRefusalIsMappedToItsError) {
    // The bus refuses bad arguments (result 1) and devices it does not know (result 9).
    RelayHandler badTimeout;
    badTimeout.timeoutOverride = -1;
    const Outcome refused = run(badTimeout, HostFixture::authorizedRequest(kMethodGet, kRelayUrl));
    EXPECT_EQ(refused.status, 400);
    EXPECT_EQ(refused.asyncReply, 0);
    EXPECT_EQ(refused.response, errorDocument(0x60000001));

    RelayHandler ghost;
    ghost.targetDevice = "ghost";
    const Outcome unknown = run(ghost, HostFixture::authorizedRequest(kMethodGet, kRelayUrl));
    EXPECT_EQ(unknown.status, 500);
    EXPECT_EQ(unknown.asyncReply, 0);
    EXPECT_EQ(unknown.response, errorDocument(0x30000014));
    EXPECT_TRUE(host.device()->requests().empty());
}

// What the callback sends for each kind of device answer, and the failure it logs.
TEST_F(RelayTest, CallbackAnswersByKindOfDeviceAnswer) {
    constexpr const char* kXml = "application/xml";
    constexpr const char* kBinary = "application/octet-stream";
    constexpr const char* kParseError = "json formart error.";
    const std::string deep = std::string(5000, '[') + std::string(5000, ']');
    const struct {
        std::string bytes;
        int status;
        uint32_t errorNumber;
        const char* contentType;
        const char* failureLog;  // level 5 line, or null
    } cases[] = {
        // A device status decides the answer unless its error maps to HTTP 200.
        {R"({"statusCode":4,"statusString":"Invalid Operation","errorCode":1073741830})", 403,
         0x40000006, kXml, nullptr},
        {R"({"errorCode":536870916,"errorMsg":"deviceBusy","statusCode":2,"statusString":"x"})",
         503, 0x20000004, kXml, nullptr},
        {R"({"statusCode":3,"statusString":"Device Error","errorCode":805310475})", 500, 0x3000100B,
         kXml, nullptr},
        // OK and reboot-required go on to the handlers, none of which claims this URL.
        {R"({"statusCode":1,"statusString":"OK","errorCode":1})", 500, 0x30000014, kXml, nullptr},
        {R"({"statusCode":7,"statusString":"x","errorCode":1879048193})", 500, 0x30000014, kXml,
         nullptr},
        // No usable errorCode.
        {R"({"statusCode":3,"statusString":"Device Error"})", 500, 0x30000014, kXml, nullptr},
        {R"({"statusCode":4,"statusString":"x","errorCode":"1073741830"})", 500, 0x30000014, kXml,
         nullptr},
        {R"({"statusCode":4,"statusString":"x","errorCode":2147483648})", 500, 0x30000014, kXml,
         nullptr},
        {R"({"statusCode":4,"statusString":"x","errorCode":1073741830.5})", 500, 0x30000014, kXml,
         nullptr},
        {R"({"statusCode":4,"statusString":"x","errorCode":{}})", 500, 0x30000014, kXml, nullptr},
        // Payloads nobody converts.
        {R"({"DeviceInfo":{}})", 500, 0x30000014, kXml, nullptr},
        {"[1,2]", 500, 0x30000014, kXml, nullptr},
        {"\"statusCode\"", 500, 0x30000014, kXml, nullptr},
        // Not JSON; short buffers are JSON text too.
        {"this is not JSON", 500, 0x30000014, kXml, kParseError},
        {"", 500, 0x30000014, kXml, kParseError},
        {"QX", 500, 0x30000014, kXml, kParseError},
        {deep, 500, 0x30000014, kXml, kParseError},
        // The host's binary frames.
        {"QXMD", 500, 0x30000014, kBinary, "receive invalid data."},
        {std::string("QXBD\0\x01\x02{}", 9), 500, 0x30000014, kBinary, "receive invalid data."},
    };
    for (const auto& c : cases) {
        const std::string name = c.bytes.substr(0, 60);
        LogCapture log;
        const TestRequest request(kMethodGet, kRelayUrl);
        EXPECT_EQ(CDevCfgBase::deviceCfgCallBack(c.bytes.data(), static_cast<int>(c.bytes.size()),
                                                 contextFor(request, &handler)),
                  0)
            << name;
        ASSERT_EQ(request.exchange().respondCount(), 1) << name;
        EXPECT_EQ(request.exchange().status(), c.status) << name;
        EXPECT_EQ(request.exchange().answerHeader("Content-Type"), c.contentType) << name;
        const std::string body = errorDocument(c.errorNumber);
        EXPECT_EQ(request.exchange().written(), body) << name;
        EXPECT_TRUE(log.contains("[QXKORVAProtocol::CDevCfgBase::deviceCfgCallBack(")) << name;
        EXPECT_TRUE(log.contains(")] [rsp = " + body + "]rsponse data", 3)) << name;
        if (c.failureLog != nullptr) {
            EXPECT_TRUE(log.contains(c.failureLog, 5)) << name;
        }
    }
}

TEST_F(RelayTest, CallbackReadsOnlyTheGivenLength) {
    const std::string bytes =
        R"({"statusCode":4,"statusString":"x","errorCode":1073741830}garbage)";
    const TestRequest request(kMethodGet, kRelayUrl);
    CDevCfgBase::deviceCfgCallBack(bytes.data(), static_cast<int>(bytes.size()) - 7,
                                   contextFor(request, &handler));
    EXPECT_EQ(request.exchange().status(), 403);
}

// Unusable callbacks send nothing; every one with a handler still releases its context.
TEST_F(RelayTest, CallbackWithoutUsableDataSendsNothing) {
    const TestRequest request(kMethodGet, kRelayUrl);
    const char data[] = "{}";
    const struct {
        const char* data;
        int length;
        int handle;
        const char* line;
    } cases[] = {
        {nullptr, 2, request.handle(), "callback data error 2"},
        {data, -1, request.handle(), "callback data error 2"},
        {data, 2, -1, "callback data error 4"},
        {data, 2, -5, "callback data error 4"},
    };
    for (const auto& c : cases) {
        LogCapture log;
        DeviceCfgContext* context = contextFor(request, &handler);
        context->httpHandle = c.handle;
        EXPECT_EQ(CDevCfgBase::deviceCfgCallBack(c.data, c.length, context), 0) << c.line;
        EXPECT_TRUE(log.contains(c.line, 5)) << c.line;
    }
    EXPECT_EQ(request.exchange().respondCount(), 0);
}

TEST_F(RelayTest, CallbackWithoutHandlerLeavesTheContextToItsOwner) {
    const TestRequest request(kMethodGet, kRelayUrl);
    DeviceCfgContext* context = contextFor(request, nullptr);
    LogCapture log;
    EXPECT_EQ(CDevCfgBase::deviceCfgCallBack("{}", 2, context), -1);
    EXPECT_EQ(CDevCfgBase::deviceCfgCallBack("{}", 2, nullptr), -1);
    EXPECT_TRUE(log.contains("callback data error 1", 5));
    EXPECT_EQ(request.exchange().respondCount(), 0);
    releaseDeviceCfgContext(context);
}

TEST_F(RelayTest, AttachmentIsReleasedWithTheContext) {
    const TestRequest request(kMethodGet, kRelayUrl);
    DeviceCfgContext* context = contextFor(request, &handler);
    context->attachment = new char[16];
    context->attachmentLength = 16;
    EXPECT_EQ(CDevCfgBase::deviceCfgCallBack(nullptr, 0, context), 0);
}

TEST_F(RelayTest, AnswerForAGoneClientIsDropped) {
    int handle = -1;
    {
        const TestRequest request(kMethodGet, kRelayUrl);
        handle = request.handle();
    }
    DeviceCfgContext* context = allocateDeviceCfgContext();
    context->httpHandle = handle;
    context->handler = &handler;
    EXPECT_EQ(CDevCfgBase::deviceCfgCallBack("{}", 2, context), 0);
}

// Immediate answers race the request thread: the callback may run and release the context
// before procProtocol returns. Many requests from several threads, each answered exactly once.
TEST_F(RelayTest, ConcurrentRequestsAndCallbacks) {
    host.device()->setDefaultAnswer(
        R"({"statusCode":4,"statusString":"Invalid Operation","errorCode":1073741830})");
    constexpr int kThreads = 4;
    constexpr int kRequestsPerThread = 25;
    std::vector<std::vector<TestRequest>> requests(kThreads);
    for (auto& batch : requests) {
        for (int i = 0; i < kRequestsPerThread; ++i) {
            batch.push_back(HostFixture::authorizedRequest(kMethodGet, kRelayUrl));
        }
    }
    std::vector<std::thread> threads;
    for (auto& batch : requests) {
        threads.emplace_back([&batch] {
            for (const TestRequest& request : batch) {
                RelayHandler relay;
                const Outcome outcome = run(relay, request);
                EXPECT_EQ(outcome.status, 200);
                EXPECT_EQ(outcome.asyncReply, 1);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    for (const auto& batch : requests) {
        for (const TestRequest& request : batch) {
            ASSERT_TRUE(request.exchange().waitForResponds(1));
            EXPECT_EQ(request.exchange().status(), 403);
            EXPECT_EQ(request.exchange().respondCount(), 1);
        }
    }
}

}  // namespace
}  // namespace QXKORVAProtocol
