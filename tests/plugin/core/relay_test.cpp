// The device relay: procProtocol's hand-over to the bus, and deviceCfgCallBack's answers.
#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <vector>

#include "gateway/testing/harness.h"
#include "plugin/relay/device_cfg_context.h"
#include "test_handlers.h"

namespace QXKORVAProtocol {
namespace {

using korva::testing::HostFixture;
using korva::testing::LogCapture;
using korva::testing::TestRequest;
using QXHttpService::kMethodGet;
using testing::kRelayUrl;
using testing::Outcome;
using testing::RelayHandler;
using testing::run;

constexpr char kRefused[] =
    R"({"statusCode":4,"statusString":"Invalid Operation","errorCode":1073741830})";

std::string errorDocument(uint32_t errorNumber) {
    return CProtocolBase::getResponseByError(static_cast<int>(errorNumber), kRelayUrl);
}

// A context as procProtocol hands it to the bus: the callback releases it.
DeviceCfgContext* contextFor(int httpHandle, void* handler) {
    DeviceCfgContext* context = allocateDeviceCfgContext();
    context->httpHandle = httpHandle;
    context->handler = handler;
    return context;
}

class RelayTest : public ::testing::Test {
  protected:
    HostFixture host;
    RelayHandler handler;
};

TEST_F(RelayTest, AcceptedRelayAnswersLaterOnTheExchange) {
    host.device()->setMode(korva::testing::ScriptedDevice::Mode::kDeferred);
    const TestRequest request =
        HostFixture::authorizedRequest(QXHttpService::kMethodPut, kRelayUrl, "<Probe>1</Probe>");
    const Outcome outcome = run(handler, request);
    EXPECT_EQ(outcome.status, 200);
    EXPECT_EQ(outcome.asyncReply, 1);
    EXPECT_EQ(outcome.response, "untouched");
    EXPECT_EQ(handler.preparedTimeoutMs, 10000);
    EXPECT_TRUE(handler.preparedOwnExchange);

    ASSERT_TRUE(host.device()->waitForRequests(1));
    const auto relayed = host.device()->requests().at(0);
    EXPECT_EQ(relayed.method, QXHttpService::kMethodPut);
    EXPECT_EQ(relayed.url, "/KORVA/Test/relay?format=json&devIndex=dev-1");
    EXPECT_EQ(relayed.body, "{\"probe\":true}\n");
    EXPECT_EQ(request.exchange().respondCount(), 0);

    // The device's answer arrives through the callback, checked in detail below.
    ASSERT_TRUE(host.device()->replyPending(0, kRefused));
    ASSERT_TRUE(request.exchange().waitForResponds(1));
    EXPECT_EQ(request.exchange().written(), errorDocument(0x40000006));
}

// Refusals before anything reaches the device are answered at once: by the conversion, by the
// preparation, and by the bus for bad arguments or an unknown device.
TEST_F(RelayTest, RefusalsBeforeTheDeviceAreAnsweredAtOnce) {
    const struct {
        std::function<void(RelayHandler&)> setUp;
        int status;
        uint32_t errorNumber;
    } cases[] = {
        {[](RelayHandler& h) { h.convertResult = 9; }, 500, 0x30000014},
        {[](RelayHandler& h) { h.prepareResult = 0; }, 400, 0x60000001},
        {[](RelayHandler& h) { h.timeoutOverride = -1; }, 400, 0x60000001},
        {[](RelayHandler& h) { h.targetDevice = "ghost"; }, 500, 0x30000014},
    };
    for (const auto& c : cases) {
        RelayHandler refusing;
        c.setUp(refusing);
        const Outcome outcome =
            run(refusing, HostFixture::authorizedRequest(kMethodGet, kRelayUrl));
        EXPECT_EQ(outcome.status, c.status);
        EXPECT_EQ(outcome.asyncReply, 0);
        EXPECT_EQ(outcome.response, errorDocument(c.errorNumber));
    }
    EXPECT_TRUE(host.device()->requests().empty());
}

// What the callback sends for each kind of device answer, and the failure it logs.
TEST_F(RelayTest, CallbackAnswersByKindOfDeviceAnswer) {
    constexpr const char* kParseError = "json formart error.";
    const std::string deep = std::string(5000, '[') + std::string(5000, ']');
    struct Case {
        std::string bytes;
        int status;
        uint32_t errorNumber;
        const char* failureLog;  // level 5 line, or null
    };
    std::vector<Case> cases = {
        // A device status decides the answer unless its error maps to HTTP 200.
        {kRefused, 403, 0x40000006, nullptr},
        {R"({"errorCode":536870916,"statusCode":2,"statusString":"x"})", 503, 0x20000004, nullptr},
        {R"({"statusCode":3,"statusString":"x","errorCode":805310475})", 500, 0x3000100B, nullptr},
        // OK and reboot-required go on to the handlers, none of which claims this URL.
        {R"({"statusCode":1,"statusString":"OK","errorCode":1})", 500, 0x30000014, nullptr},
        {R"({"statusCode":7,"statusString":"x","errorCode":1879048193})", 500, 0x30000014, nullptr},
        {"[1,2]", 500, 0x30000014, nullptr},  // a payload nobody converts
        // Not JSON; short buffers are JSON text too.
        {"this is not JSON", 500, 0x30000014, kParseError},
        {"QX", 500, 0x30000014, kParseError},
        {deep, 500, 0x30000014, kParseError},
        {std::string("QXBD\0\x01\x02{}", 9), 500, 0x30000014, "receive invalid data."},
    };
    for (const char* code : {"\"1073741830\"", "2147483648", "1073741830.5"}) {  // unusable
        cases.push_back(
            {std::string(R"({"statusCode":4,"statusString":"x","errorCode":)") + code + "}", 500,
             0x30000014, nullptr});
    }
    for (const auto& c : cases) {
        const std::string name = c.bytes.substr(0, 60);
        LogCapture log;
        const TestRequest request(kMethodGet, kRelayUrl);
        EXPECT_EQ(CDevCfgBase::deviceCfgCallBack(c.bytes.data(), static_cast<int>(c.bytes.size()),
                                                 contextFor(request.handle(), &handler)),
                  0)
            << name;
        ASSERT_EQ(request.exchange().respondCount(), 1) << name;
        EXPECT_EQ(request.exchange().status(), c.status) << name;
        EXPECT_EQ(request.exchange().answerHeader("Content-Type"),
                  c.bytes.starts_with("QXBD") ? "application/octet-stream" : "application/xml")
            << name;
        const std::string body = errorDocument(c.errorNumber);
        EXPECT_EQ(request.exchange().written(), body) << name;
        EXPECT_TRUE(log.contains(")] [rsp = " + body + "]rsponse data", 3)) << name;
        if (c.failureLog != nullptr) {
            EXPECT_TRUE(log.contains(c.failureLog, 5)) << name;
        }
    }
    // Only the given length is read.
    const std::string trailing = std::string(kRefused) + "garbage";
    const TestRequest request(kMethodGet, kRelayUrl);
    CDevCfgBase::deviceCfgCallBack(trailing.data(), static_cast<int>(trailing.size()) - 7,
                                   contextFor(request.handle(), &handler));
    EXPECT_EQ(request.exchange().status(), 403);
}

// Unusable callbacks send nothing; every one with a handler releases its context (attachment
// included), even when the client is gone. Without a handler the context stays with its owner.
TEST_F(RelayTest, CallbackWithoutUsableDataSendsNothing) {
    const TestRequest request(kMethodGet, kRelayUrl);
    int goneHandle = -1;
    { goneHandle = TestRequest(kMethodGet, kRelayUrl).handle(); }
    const struct {
        const char* data;
        int length, handle;
        const char* line;  // level 5 line, or null
    } cases[] = {
        {nullptr, 2, request.handle(), "callback data error 2"},
        {"{}", -1, request.handle(), "callback data error 2"},
        {"{}", 2, -1, "callback data error 4"},
        {"{}", 2, -5, "callback data error 4"},
        {"{}", 2, goneHandle, nullptr},
    };
    for (const auto& c : cases) {
        LogCapture log;
        DeviceCfgContext* context = contextFor(c.handle, &handler);
        context->attachment = new char[16];
        context->attachmentLength = 16;
        EXPECT_EQ(CDevCfgBase::deviceCfgCallBack(c.data, c.length, context), 0) << c.handle;
        if (c.line != nullptr) {
            EXPECT_TRUE(log.contains(c.line, 5)) << c.line;
        }
    }

    DeviceCfgContext* orphan = contextFor(request.handle(), nullptr);
    LogCapture log;
    EXPECT_EQ(CDevCfgBase::deviceCfgCallBack("{}", 2, orphan), -1);
    EXPECT_EQ(CDevCfgBase::deviceCfgCallBack("{}", 2, nullptr), -1);
    EXPECT_TRUE(log.contains("callback data error 1", 5));
    EXPECT_EQ(request.exchange().respondCount(), 0);
    releaseDeviceCfgContext(orphan);
}

// Immediate answers race the request thread: the callback may run and release the context
// before procProtocol returns. Many requests from several threads, each answered exactly once.
TEST_F(RelayTest, ConcurrentRequestsAndCallbacks) {
    host.device()->setDefaultAnswer(kRefused);
    std::vector<TestRequest> requests;
    for (int i = 0; i < 100; ++i)
        requests.push_back(HostFixture::authorizedRequest(kMethodGet, kRelayUrl));
    std::vector<std::thread> threads;
    for (size_t t = 0; t < 4; ++t) {
        threads.emplace_back([&requests, t] {
            for (size_t i = t; i < requests.size(); i += 4) {
                RelayHandler relay;
                EXPECT_EQ(run(relay, requests[i]).asyncReply, 1);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    for (const TestRequest& request : requests) {
        ASSERT_TRUE(request.exchange().waitForResponds(1));
        EXPECT_EQ(request.exchange().status(), 403);
        EXPECT_EQ(request.exchange().respondCount(), 1);
    }
}

}  // namespace
}  // namespace QXKORVAProtocol
