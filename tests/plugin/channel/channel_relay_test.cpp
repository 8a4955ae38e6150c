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

TEST_F(ChannelRelay, AudioChannelsFromVideoInputs) {
    host.device()->answerFor("GET /KORVA/System/Video/inputs/channels",
                             R"({"VideoInputChannelList":[{"id":"1"},{"id":"2"}]})");
    TestRequest request = HostFixture::authorizedRequest(kGet, "/KORVA/System/Audio/channels");
    expectRelayed(run(request), request);
    ASSERT_EQ(1u, host.device()->requests().size());
    EXPECT_EQ("/KORVA/System/Video/inputs/channels", host.device()->requests()[0].path);
    EXPECT_EQ(2u, countOf(request.exchange().written(), "/AudioChannelList/AudioChannel"));
}

TEST_F(ChannelRelay, CapabilitiesAndListRoutes) {
    host.device()->answerFor("GET /KORVA/Streaming/channels/1/capabilities",
                             R"({"StreamingChannel":{"id":"1"}})");
    Json::Value list;
    list["StreamingChannelList"].append(minimalAnswer());
    host.device()->answerFor("GET /KORVA/Streaming/channels", Json::FastWriter().write(list));

    TestRequest capabilities =
        HostFixture::authorizedRequest(kGet, "/KORVA/Streaming/channels/1/capabilities");
    expectRelayed(run(capabilities), capabilities);
    EXPECT_EQ(
        1u, countOf(capabilities.exchange().written(), "/StreamingChannel/Video/keyFrameInterval"));

    TestRequest channels = HostFixture::authorizedRequest(kGet, "/KORVA/Streaming/channels");
    expectRelayed(run(channels), channels);
    EXPECT_EQ("101",
              textAt(channels.exchange().written(), "/StreamingChannelList/StreamingChannel/id"));
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

TEST_F(ChannelRelay, MethodsNotTakenAreLeftToOtherHandlers) {
    TestRequest request = HostFixture::authorizedRequest(2, "/KORVA/Streaming/channels/101");
    const Call call = run(request);
    EXPECT_EQ(-1, call.status);
    EXPECT_EQ("untouched", call.response);
    EXPECT_TRUE(host.device()->requests().empty());
}

}  // namespace
