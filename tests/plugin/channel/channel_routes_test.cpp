// Streaming channel routes: taken requests, gateway URLs, claimed answers and the relay.
#include <gtest/gtest.h>
#include <json/writer.h>

#include <climits>

#include "gateway/testing/harness.h"
#include "plugin/handlers/channel_cfg.h"
#include "tests/plugin/channel/channel_test_support.h"

namespace {

using namespace channel_test;
using korva::testing::HostFixture;
using korva::testing::TestRequest;
using QXKORVAProtocol::CChannelCfg;

constexpr unsigned char kGet = 0, kPut = 1, kPost = 2, kDelete = 3;

TEST(ChannelRoutes, TakenRequestsAndTheirGatewayUrl) {
    const struct {
        unsigned char method;
        const char* url;
        const char* jsonUrl;  // nullptr: not this handler's request
    } cases[] = {
        {kGet, "/KORVA/Streaming/channels/1", "/KORVA/Streaming/channels/101"},
        {kGet, "/Streaming/channels/1", "/KORVA/Streaming/channels/101"},
        {kGet, "/KORVA/Streaming/channels/100", "/KORVA/Streaming/channels/10001"},
        {kGet, "/KORVA/Streaming/channels/2?devIndex=other", "/KORVA/Streaming/channels/201"},
        {kGet, "/KORVA/Streaming/channels/1/capabilities",
         "/KORVA/Streaming/channels/1/capabilities"},
        {kGet, "/KORVA/Streaming/channels", "/KORVA/Streaming/channels"},
        {kGet, "/KORVA/System/Audio/channels", "/KORVA/System/Video/inputs/channels"},
        {kPost, "/KORVA/Streaming/channels/101", nullptr},
        {kPut, "/KORVA/Streaming/channels", nullptr},
        {kPut, "/KORVA/Streaming/channels/101/capabilities", nullptr},
        {kGet, "/Streaming/channels/1/capabilities", nullptr},
        {kDelete, "/KORVA/System/Audio/channels", nullptr},
        {kGet, "/KORVA/Streaming/channels/abc", nullptr},
        {kGet, "/KORVA/Streaming/channels/1/", nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.url) + " method " + std::to_string(c.method));
        EXPECT_EQ(c.jsonUrl ? 0 : -1, CChannelCfg().matchURL(c.url, c.method));
        TestRequest request(c.method, c.url);
        std::string jsonUrl;
        std::string jsonBody = "stale";
        const int result =
            CChannelCfg().covertUrlandBody(&jsonUrl, &jsonBody, request.holder(), "cam-7");
        if (c.jsonUrl == nullptr) {
            EXPECT_EQ(-1, result);
            continue;
        }
        ASSERT_EQ(0, result);
        EXPECT_EQ(std::string(c.jsonUrl) + "?format=json&devIndex=cam-7", jsonUrl);
        EXPECT_EQ("", jsonBody);
        // A device index too long for the gateway URL is refused, never cut.
        jsonUrl.clear();
        EXPECT_EQ(9, CChannelCfg().covertUrlandBody(&jsonUrl, &jsonBody, request.holder(),
                                                    std::string(3000, 'd')));
        EXPECT_EQ("", jsonUrl);
    }
    EXPECT_EQ(0, CChannelCfg().matchURL("/Streaming/channels/102", kPut));
    // Channel numbers at the ends of the integer range do not overflow into other channels.
    const int numbers[][2] = {
        {0, 1}, {-1, -99}, {INT_MAX, INT_MAX}, {-21474836, -2147483599}, {INT_MIN, INT_MIN}};
    for (const auto& [channel, id] : numbers) {
        EXPECT_EQ(id, CChannelCfg::translateChannelNumber(channel)) << channel;
    }
}

TEST(ChannelRoutes, PutBodiesThatCannotBeRelayed) {
    for (const char* body : {static_cast<const char*>(nullptr), "<Video/>", "<StreamingChannel>"}) {
        TestRequest request(kPut, "/KORVA/Streaming/channels/101", body ? body : "");
        ExchangeHolder holder = request.holder();
        if (body == nullptr) holder.body = nullptr;
        std::string jsonUrl;
        std::string jsonBody;
        EXPECT_EQ(9, CChannelCfg().covertUrlandBody(&jsonUrl, &jsonBody, holder, "dev"))
            << (body ? body : "(no body)");
    }
}

TEST(ChannelRoutes, AnswersClaimedByRoute) {
    const Json::Value channel = minimalAnswer();
    const Json::Value empty(Json::objectValue);
    const Json::Value capabilitiesOnly = parseJson(R"({"StreamingChannel":{}})");
    const struct {
        const char* url;
        int method;
        const Json::Value& answer;
        int result;
    } cases[] = {
        {"/Streaming/channels/1", kGet, channel, 0},
        {"/KORVA/Streaming/channels/101", kGet, empty, 9},
        {"/KORVA/Streaming/channels/101", kPost, channel, -1},
        {"/KORVA/Streaming/channels", kGet, empty, 9},
        {"/KORVA/Streaming/channels/101/capabilities", kGet, capabilitiesOnly, 0},
        {"/KORVA/System/Audio/channels", kGet, empty, 9},
        {"/KORVA/System/Audio/channels", kDelete, empty, -1},
        {"/KORVA/System/Video/inputs/channels", kGet, empty, -1},
    };
    for (const auto& c : cases) {
        std::string xml = "untouched";
        EXPECT_EQ(c.result, CChannelCfg().covertRsp(&xml, c.answer, c.url, c.method)) << c.url;
        if (c.result != 0) {
            EXPECT_EQ("untouched", xml) << c.url;
        }
    }
    // A PUT is answered OK whatever the device sent.
    std::string xml;
    ASSERT_EQ(0, CChannelCfg().covertRsp(&xml, parseJson(R"({"StreamingChannel":42})"),
                                         "/KORVA/Streaming/channels/101", kPut));
    EXPECT_EQ((XmlEntries{{"/ResponseStatus", ""},
                          {"/ResponseStatus/requestURL", "/KORVA/Streaming/channels/101"},
                          {"/ResponseStatus/statusCode", "1"},
                          {"/ResponseStatus/statusString", "OK"},
                          {"/ResponseStatus/subStatusCode", "ok"}}),
              entriesOf(xml));
}

TEST(ChannelRelay, RequestToDeviceAndAnswerToClient) {
    std::string noFrameRate = fullChannelXml();
    noFrameRate.erase(noFrameRate.find("<maxFrameRate>"), 33);
    const std::string channel = Json::FastWriter().write(minimalAnswer());
    const struct {
        unsigned char method;
        const char* url;
        std::string body;
        std::string deviceAnswer;
        const char* relayedPath;  // nullptr: the device must not be asked
        int status;
        const char* element;
        const char* text;
    } cases[] = {
        {kGet, "/KORVA/Streaming/channels/1", "", channel, "/KORVA/Streaming/channels/101", 200,
         "/StreamingChannel/Transport/ControlProtocolList/ControlProtocol/streamingTransport",
         "RTSP"},
        {kPut, "/Streaming/channels/102", fullChannelXml(), "{}", "/KORVA/Streaming/channels/102",
         200, "/ResponseStatus/subStatusCode", "ok"},
        {kPut, "/KORVA/Streaming/channels/101", noFrameRate, "{}", nullptr, 500,
         "/ResponseStatus/subStatusCode", "internalError"},
        {kGet, "/KORVA/Streaming/channels/101", "", R"({"StreamingChannel":{"id":101}})",
         "/KORVA/Streaming/channels/101", 500, "/ResponseStatus/subStatusCode", "internalError"},
        {kGet, "/KORVA/System/Audio/channels", "", R"({"VideoInputChannelList":[{},{}]})",
         "/KORVA/System/Video/inputs/channels", 200, "/AudioChannelList/AudioChannel/id", "1"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.url);
        HostFixture host;
        host.device()->setDefaultAnswer(c.deviceAnswer);
        TestRequest request = HostFixture::authorizedRequest(c.method, c.url, c.body);
        int handled = 0, asyncReply = 0;
        std::string response = "untouched";
        const int status = CChannelCfg().proc(&handled, &response, &asyncReply, request.holder());
        if (c.relayedPath == nullptr) {
            EXPECT_EQ(c.status, status);
            EXPECT_EQ(0, asyncReply);
            EXPECT_EQ(c.text, textAt(response, c.element));
            EXPECT_TRUE(host.device()->requests().empty());
            continue;
        }
        EXPECT_EQ(200, status);
        EXPECT_EQ(1, asyncReply);
        EXPECT_EQ("untouched", response);
        ASSERT_TRUE(request.exchange().waitForResponds(1));
        const auto relayed = host.device()->requests();
        ASSERT_EQ(1u, relayed.size());
        EXPECT_EQ(c.method, relayed[0].method);
        EXPECT_EQ(std::string(c.relayedPath) + "?format=json&devIndex=dev-1", relayed[0].url);
        const std::string& body = relayed[0].body;
        EXPECT_EQ(c.method == kPut ? parseJson(fullChannelJson()) : Json::Value(""),
                  body.empty() ? Json::Value("") : parseJson(body));
        EXPECT_EQ(c.status, request.exchange().status());
        EXPECT_EQ("application/xml", request.exchange().answerHeader("Content-Type"));
        EXPECT_EQ(c.text, textAt(request.exchange().written(), c.element));
    }
}

}  // namespace
