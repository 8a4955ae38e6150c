// Routes of the streaming channel handler: which requests it takes, the gateway request each
// becomes, and which answers it claims.
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "gateway/testing/harness.h"
#include "plugin/handlers/channel_cfg.h"
#include "tests/plugin/channel/channel_test_support.h"

namespace {

using namespace channel_test;
using korva::testing::TestRequest;
using QXKORVAProtocol::CChannelCfg;

constexpr unsigned char kGet = 0;
constexpr unsigned char kPut = 1;
constexpr unsigned char kPost = 2;
constexpr unsigned char kDelete = 3;

TEST(ChannelRoutes, MatchUrl) {
    const struct {
        const char* url;
        unsigned char method;
        bool taken;
    } cases[] = {
        {"/KORVA/Streaming/channels/1", kGet, true},
        {"/KORVA/Streaming/channels/101", kPut, true},
        {"/Streaming/channels/1", kGet, true},
        {"/Streaming/channels/102", kPut, true},
        {"/KORVA/Streaming/channels/101?format=xml", kGet, true},
        {"/KORVA/Streaming/channels/101", kPost, false},
        {"/KORVA/Streaming/channels/101", kDelete, false},
        {"/KORVA/Streaming/channels", kGet, true},
        {"/KORVA/Streaming/channels", kPut, false},
        {"/KORVA/Streaming/channels/1/capabilities", kGet, true},
        {"/KORVA/Streaming/channels/101/capabilities", kPut, false},
        {"/Streaming/channels/1/capabilities", kGet, false},
        {"/KORVA/System/Audio/channels", kGet, true},
        {"/KORVA/System/Audio/channels", kPut, false},
        {"/KORVA/Streaming/channels/", kGet, false},
        {"/KORVA/Streaming/channels/abc", kGet, false},
        {"/KORVA/Streaming/channels/1/", kGet, false},
        {"/KORVA/System/deviceInfo", kGet, false},
        {"/KORVA/Event/notification/alertStream", kGet, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.taken ? 0 : -1, CChannelCfg().matchURL(c.url, c.method))
            << c.url << " method " << int(c.method);
    }
}

TEST(ChannelRoutes, TranslateChannelNumber) {
    const struct {
        int channel;
        int id;
    } cases[] = {
        {1, 101},           {2, 201},
        {100, 10001},       {101, 101},
        {102, 102},         {0, 1},
        {-1, -99},          {99, 9901},
        {INT_MAX, INT_MAX}, {-21474836, -2147483599},
        {INT_MIN, INT_MIN},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.id, CChannelCfg::translateChannelNumber(c.channel)) << c.channel;
    }
}

TEST(ChannelRoutes, GatewayRequests) {
    const struct {
        unsigned char method;
        const char* url;
        const char* jsonUrl;
    } cases[] = {
        {kGet, "/KORVA/Streaming/channels/1", "/KORVA/Streaming/channels/101"},
        {kGet, "/Streaming/channels/1", "/KORVA/Streaming/channels/101"},
        {kGet, "/KORVA/Streaming/channels/102", "/KORVA/Streaming/channels/102"},
        {kGet, "/KORVA/Streaming/channels/100", "/KORVA/Streaming/channels/10001"},
        {kGet, "/KORVA/Streaming/channels/2?devIndex=other", "/KORVA/Streaming/channels/201"},
        {kGet, "/KORVA/Streaming/channels/1/capabilities",
         "/KORVA/Streaming/channels/1/capabilities"},
        {kGet, "/KORVA/Streaming/channels/101/capabilities",
         "/KORVA/Streaming/channels/101/capabilities"},
        {kGet, "/KORVA/Streaming/channels", "/KORVA/Streaming/channels"},
        {kGet, "/KORVA/System/Audio/channels", "/KORVA/System/Video/inputs/channels"},
    };
    for (const auto& c : cases) {
        TestRequest request(c.method, c.url);
        std::string jsonUrl;
        std::string jsonBody = "stale";
        ASSERT_EQ(0, CChannelCfg().covertUrlandBody(&jsonUrl, &jsonBody, request.holder(), "cam-7"))
            << c.url;
        EXPECT_EQ(std::string(c.jsonUrl) + "?format=json&devIndex=cam-7", jsonUrl) << c.url;
        EXPECT_EQ("", jsonBody) << c.url;
    }
}

TEST(ChannelRoutes, PutCarriesTheConvertedBody) {
    TestRequest request(kPut, "/Streaming/channels/1", fullChannelXml());
    std::string jsonUrl;
    std::string jsonBody;
    ASSERT_EQ(0, CChannelCfg().covertUrlandBody(&jsonUrl, &jsonBody, request.holder(), "dev"));
    EXPECT_EQ("/KORVA/Streaming/channels/101?format=json&devIndex=dev", jsonUrl);
    EXPECT_EQ(parseJson(fullChannelJson()), parseJson(jsonBody));
}

TEST(ChannelRoutes, RequestsThatCannotBeRelayed) {
    const std::string longDevice(3000, 'd');
    const struct {
        const char* name;
        unsigned char method;
        const char* url;
        const char* body;
        std::string devIndex;
        int result;
    } cases[] = {
        {"PUT without body", kPut, "/KORVA/Streaming/channels/101", nullptr, "dev", 9},
        {"PUT with other document", kPut, "/KORVA/Streaming/channels/101", "<Video/>", "dev", 9},
        {"PUT of broken XML", kPut, "/KORVA/Streaming/channels/101", "<StreamingChannel>", "dev",
         9},
        {"device index too long", kGet, "/KORVA/Streaming/channels/1", nullptr, longDevice, 9},
        {"device index too long, list", kGet, "/KORVA/Streaming/channels", nullptr, longDevice, 9},
        {"device index too long, audio", kGet, "/KORVA/System/Audio/channels", nullptr, longDevice,
         9},
        {"device index too long, capabilities", kGet, "/KORVA/Streaming/channels/1/capabilities",
         nullptr, longDevice, 9},
        {"POST", kPost, "/KORVA/Streaming/channels/101", nullptr, "dev", -1},
        {"PUT on list", kPut, "/KORVA/Streaming/channels", nullptr, "dev", -1},
        {"DELETE on audio", kDelete, "/KORVA/System/Audio/channels", nullptr, "dev", -1},
        {"other resource", kGet, "/KORVA/System/deviceInfo", nullptr, "dev", -1},
    };
    for (const auto& c : cases) {
        TestRequest request(c.method, c.url, c.body ? c.body : "");
        ExchangeHolder holder = request.holder();
        if (c.body == nullptr) holder.body = nullptr;
        std::string jsonUrl;
        std::string jsonBody;
        EXPECT_EQ(c.result, CChannelCfg().covertUrlandBody(&jsonUrl, &jsonBody, holder, c.devIndex))
            << c.name;
        if (c.result == 9 && c.method == kGet) {
            EXPECT_EQ("", jsonUrl) << c.name;
        }
    }
}

TEST(ChannelRoutes, AnswersClaimedByRoute) {
    const Json::Value channel = minimalAnswer();
    const Json::Value empty(Json::objectValue);
    // Enough for the capability answer, not for a channel conversion.
    const Json::Value capabilitiesOnly = parseJson(R"({"StreamingChannel":{}})");
    const struct {
        const char* url;
        int method;
        const Json::Value& answer;
        int result;
    } cases[] = {
        {"/KORVA/Streaming/channels/101", kGet, channel, 0},
        {"/Streaming/channels/1", kGet, channel, 0},
        {"/KORVA/Streaming/channels/101", kGet, empty, 9},
        {"/KORVA/Streaming/channels/101", kPost, channel, -1},
        {"/KORVA/Streaming/channels", kGet, empty, 9},
        {"/KORVA/Streaming/channels", kPut, empty, -1},
        {"/KORVA/Streaming/channels/101/capabilities", kGet, capabilitiesOnly, 0},
        {"/KORVA/Streaming/channels/101/capabilities", kGet, empty, 9},
        {"/KORVA/System/Audio/channels", kGet, empty, 9},
        {"/KORVA/System/Audio/channels", kDelete, empty, -1},
        {"/KORVA/System/deviceInfo", kGet, channel, -1},
        {"/KORVA/System/Video/inputs/channels", kGet, empty, -1},
    };
    for (const auto& c : cases) {
        std::string xml = "untouched";
        EXPECT_EQ(c.result, CChannelCfg().covertRsp(&xml, c.answer, c.url, c.method))
            << c.url << " method " << c.method;
        if (c.result != 0) {
            EXPECT_EQ("untouched", xml) << c.url;
        }
    }
}

TEST(ChannelRoutes, PutAnswerIsOkWhateverTheDeviceSent) {
    for (const char* answer : {"null", R"({"StreamingChannel":42})"}) {
        std::string xml;
        ASSERT_EQ(0, CChannelCfg().covertRsp(&xml, parseJson(answer),
                                             "/KORVA/Streaming/channels/101", kPut))
            << answer;
        EXPECT_EQ("/KORVA/Streaming/channels/101", textAt(xml, "/ResponseStatus/requestURL"));
        EXPECT_EQ("1", textAt(xml, "/ResponseStatus/statusCode"));
        EXPECT_EQ("OK", textAt(xml, "/ResponseStatus/statusString"));
        EXPECT_EQ("ok", textAt(xml, "/ResponseStatus/subStatusCode"));
    }
}

}  // namespace
