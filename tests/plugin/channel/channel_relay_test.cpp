// The streaming channel handler through the whole pipeline: an authorized request relayed to a
// scripted device, and the device's answer back on the exchange.
#include <gtest/gtest.h>
#include <json/writer.h>

#include <string>

#include "gateway/testing/harness.h"
#include "plugin/handlers/channel_cfg.h"
#include "tests/plugin/channel/channel_test_support.h"

namespace {

using namespace channel_test;
using korva::testing::HostFixture;
using korva::testing::RecordingExchange;
using korva::testing::TestRequest;
using QXKORVAProtocol::CChannelCfg;

constexpr unsigned char kGet = 0;
constexpr unsigned char kPut = 1;

class ChannelRelay : public ::testing::Test {
  protected:
    struct Call {
        int status = 0;
        int handled = 0;
        int asyncReply = 0;
        std::string response;
    };

    Call run(const TestRequest& request) {
        Call call;
        call.response = "untouched";
        call.status =
            CChannelCfg().proc(&call.handled, &call.response, &call.asyncReply, request.holder());
        return call;
    }

    // The relayed request was accepted; waits for the answer the callback sends.
    static void expectRelayed(const Call& call, const TestRequest& request) {
        EXPECT_EQ(200, call.status);
        EXPECT_EQ(1, call.asyncReply);
        EXPECT_EQ("untouched", call.response);
        ASSERT_TRUE(request.exchange().waitForResponds(1));
    }

    HostFixture host;
};

TEST_F(ChannelRelay, GetChannelReadsTheFirstStream) {
    host.device()->answerFor("GET /KORVA/Streaming/channels/101",
                             Json::FastWriter().write(minimalAnswer()));
    TestRequest request = HostFixture::authorizedRequest(kGet, "/KORVA/Streaming/channels/1");
    const Call call = run(request);
    expectRelayed(call, request);

    const auto relayed = host.device()->requests();
    ASSERT_EQ(1u, relayed.size());
    EXPECT_EQ(0, relayed[0].method);
    EXPECT_EQ("/KORVA/Streaming/channels/101?format=json&devIndex=dev-1", relayed[0].url);
    EXPECT_EQ("", relayed[0].body);

    const RecordingExchange& exchange = request.exchange();
    EXPECT_EQ(200, exchange.status());
    EXPECT_EQ("application/xml", exchange.answerHeader("Content-Type"));
    EXPECT_EQ("101", textAt(exchange.written(), "/StreamingChannel/id"));
    EXPECT_EQ("RTSP", textAt(exchange.written(),
                             "/StreamingChannel/Transport/ControlProtocolList/"
                             "ControlProtocol/streamingTransport"));
}

TEST_F(ChannelRelay, PutSendsTheJsonBodyAndAnswersOk) {
    host.device()->answerFor("PUT /KORVA/Streaming/channels/102", R"({"anything":1})");
    TestRequest request =
        HostFixture::authorizedRequest(kPut, "/Streaming/channels/102", fullChannelXml());
    const Call call = run(request);
    expectRelayed(call, request);

    const auto relayed = host.device()->requests();
    ASSERT_EQ(1u, relayed.size());
    EXPECT_EQ(1, relayed[0].method);
    EXPECT_EQ("/KORVA/Streaming/channels/102?format=json&devIndex=dev-1", relayed[0].url);
    EXPECT_EQ(parseJson(fullChannelJson()), parseJson(relayed[0].body));

    EXPECT_EQ(200, request.exchange().status());
    EXPECT_EQ("ok", textAt(request.exchange().written(), "/ResponseStatus/subStatusCode"));
}

TEST_F(ChannelRelay, PutWithInvalidBodyNeverReachesTheDevice) {
    std::string broken = fullChannelXml();
    broken.erase(broken.find("<maxFrameRate>"),
                 std::string("<maxFrameRate>2500</maxFrameRate>").size());
    TestRequest request =
        HostFixture::authorizedRequest(kPut, "/KORVA/Streaming/channels/101", broken);
    const Call call = run(request);
    EXPECT_EQ(500, call.status);
    EXPECT_EQ(0, call.asyncReply);
    EXPECT_EQ("internalError", textAt(call.response, "/ResponseStatus/subStatusCode"));
    EXPECT_TRUE(host.device()->requests().empty());
}

TEST_F(ChannelRelay, ListCapabilitiesAndAudioRoutes) {
    Json::Value list;
    list["StreamingChannelList"].append(minimalAnswer());
    host.device()->answerFor("GET /KORVA/Streaming/channels", Json::FastWriter().write(list));
    host.device()->answerFor("GET /KORVA/Streaming/channels/1/capabilities",
                             R"({"StreamingChannel":{"id":"1"}})");
    host.device()->answerFor("GET /KORVA/System/Video/inputs/channels",
                             R"({"VideoInputChannelList":[{"id":"1"},{"id":"2"}]})");
    const struct {
        const char* url;
        const char* relayedPath;
        const char* element;  // present once per expected count
        size_t count;
    } cases[] = {
        {"/KORVA/Streaming/channels", "/KORVA/Streaming/channels",
         "/StreamingChannelList/StreamingChannel/id", 1},
        {"/KORVA/Streaming/channels/1/capabilities", "/KORVA/Streaming/channels/1/capabilities",
         "/StreamingChannel/Video/keyFrameInterval", 1},
        {"/KORVA/System/Audio/channels", "/KORVA/System/Video/inputs/channels",
         "/AudioChannelList/AudioChannel", 2},
    };
    for (const auto& c : cases) {
        TestRequest request = HostFixture::authorizedRequest(kGet, c.url);
        expectRelayed(run(request), request);
        EXPECT_EQ(c.relayedPath, host.device()->requests().back().path) << c.url;
        EXPECT_EQ(200, request.exchange().status()) << c.url;
        EXPECT_EQ(c.count, countOf(request.exchange().written(), c.element)) << c.url;
    }
}

TEST_F(ChannelRelay, UnconvertibleAnswerBecomesInternalError) {
    host.device()->answerFor("GET /KORVA/Streaming/channels/101",
                             R"({"StreamingChannel":{"id":101}})");
    TestRequest request = HostFixture::authorizedRequest(kGet, "/KORVA/Streaming/channels/101");
    expectRelayed(run(request), request);
    EXPECT_EQ(500, request.exchange().status());
    EXPECT_EQ("internalError",
              textAt(request.exchange().written(), "/ResponseStatus/subStatusCode"));
}

}  // namespace
