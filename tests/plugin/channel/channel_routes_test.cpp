// Streaming channel routes: taken requests, gateway URLs and claimed answers (the relay round
// trip is driven with the other handlers in device_relay_test.cpp).
#include <gtest/gtest.h>

#include <climits>

#include "gateway/testing/harness.h"
#include "plugin/handlers/channel_cfg.h"
#include "tests/plugin/channel/channel_test_support.h"

namespace {

using namespace channel_test;
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

}  // namespace
