// The device-resource and streaming channel handlers through the relay to a scripted device and
// back to the client.
#include <gtest/gtest.h>
#include <json/writer.h>

#include <vector>

#include "gateway/testing/harness.h"
#include "plugin/handlers/channel_cfg.h"
#include "tests/plugin/channel/channel_test_support.h"
#include "tests/plugin/device/device_test_support.h"

namespace korva::device_tests {
namespace {

using korva::testing::HostFixture;

constexpr const char* kDeviceError =
    R"({"statusCode":4,"statusString":"Invalid Operation","errorCode":1073741830})";
constexpr const char* kDeviceOk = R"({"statusCode":1,"statusString":"OK","errorCode":1})";

constexpr Owner kChannel = kOwnerCount;  // the streaming channel handler

struct RelayCase {
    Owner owner;
    unsigned char method;
    const char* url;
    std::string body;
    std::string deviceAnswer;
    const char* relayedPath;  // nullptr: the device must not be asked
    std::string relayedBody;  // JSON, compared as a value
    int status;
    const char* answerContains;
};

std::vector<RelayCase> relayCases() {
    using channel_test::fullChannelXml;
    std::string noFrameRate = fullChannelXml();
    noFrameRate.erase(noFrameRate.find("<maxFrameRate>"), 33);
    const std::string channel = Json::FastWriter().write(channel_test::minimalAnswer());
    return {
        {kMaintain, GET, "/KORVA/System/deviceInfo", "",
         R"({"DeviceInfo":{"deviceName":"Lobby","deviceID":"1","serialNumber":"S","macAddress":"M",
         "firmwareVersion":"F","deviceType":"IPC"}})",
         "/KORVA/System/deviceInfo", "", 200, "<deviceName>Lobby</deviceName>"},
        {kMaintain, GET, "/KORVA/ContentMgmt/Storage/hdd", "", kDeviceError,
         "/KORVA/System/deviceInfo", "", 403, "<subStatusCode>invalidOperation</subStatusCode>"},
        {kEvent, PUT, "/KORVA/System/IO/outputs/2/trigger",
         "<IOPortData><outputState>low</outputState></IOPortData>", kDeviceOk,
         "/KORVA/System/IO/outputs/2/trigger", "{\"IOPortData\":{\"outputState\":\"low\"}}\n", 200,
         "<statusCode>1</statusCode>"},
        {kEvent, PUT, "/KORVA/System/IO/outputs/2/trigger",
         "<IOPortData><outputState>on</outputState></IOPortData>", kDeviceOk, nullptr, "", 500,
         "<subStatusCode>internalError</subStatusCode>"},
        {kEvent, GET, "/KORVA/Smart/capabilities", "", R"({"SmartCap":{"isSupportROI":"yes"}})",
         "/KORVA/Smart/capabilities", "", 500, "<subStatusCode>internalError</subStatusCode>"},
        {kRecord, POST, "/KORVA/ContentMgmt/search",
         "<CMSearchDescription><searchID>A</searchID><metadataList/></CMSearchDescription>",
         R"({"CMSearchResult":{"matchList":[{"searchMatchItem":{"mediaSegmentDescriptor":{"playbackURI":
         "rtsp://h/dac/camera=6f1d2c3b-aaaa-bbbb-cccc-0123456789ab1/MAIN/r?a=1&b=2"}}}]}})",
         "/KORVA/ContentMgmt/search",
         "{\"CMSearchDescription\":{\"searchID\":\"A\",\"searchResultPostion\":0,"
         "\"trackIDList\":[{\"trackID\":101}]}}\n",
         200, "<playbackURI>rtsp://h/KORVA/Streaming/tracks/101?a=1&b=2</playbackURI>"},
        {kChannel, GET, "/KORVA/Streaming/channels/1", "", channel, "/KORVA/Streaming/channels/101",
         "", 200, "<streamingTransport>RTSP</streamingTransport>"},
        {kChannel, PUT, "/Streaming/channels/102", fullChannelXml(), "{}",
         "/KORVA/Streaming/channels/102", channel_test::fullChannelJson(), 200,
         "<subStatusCode>ok</subStatusCode>"},
        {kChannel, PUT, "/KORVA/Streaming/channels/101", noFrameRate, "{}", nullptr, "", 500,
         "<subStatusCode>internalError</subStatusCode>"},
        {kChannel, GET, "/KORVA/Streaming/channels/101", "", R"({"StreamingChannel":{"id":101}})",
         "/KORVA/Streaming/channels/101", "", 500, "<subStatusCode>internalError</subStatusCode>"},
        {kChannel, GET, "/KORVA/System/Audio/channels", "", R"({"VideoInputChannelList":[{},{}]})",
         "/KORVA/System/Video/inputs/channels", "", 200, "<AudioChannel"},
    };
}

Json::Value jsonOrEmpty(const std::string& text) {
    return text.empty() ? Json::Value("") : json(text);
}

TEST(DeviceRelay, RequestsReachTheDeviceAndAnswersReachTheClient) {
    for (const auto& c : relayCases()) {
        SCOPED_TRACE(std::string(c.url) + " " + c.body);
        HostFixture host;
        host.device()->setDefaultAnswer(c.deviceAnswer);
        auto request = HostFixture::authorizedRequest(c.method, c.url, c.body);
        int handled = 0, asyncReply = 0;
        std::string response = "untouched";
        const int status = (c.owner == kChannel ? std::make_unique<QXKORVAProtocol::CChannelCfg>()
                                                : makeHandler(c.owner))
                               ->proc(&handled, &response, &asyncReply, request.holder());
        if (c.relayedPath == nullptr) {
            EXPECT_EQ(c.status, status);
            EXPECT_EQ(0, asyncReply);
            EXPECT_NE(std::string::npos, response.find(c.answerContains)) << response;
            EXPECT_TRUE(host.device()->requests().empty());
            continue;
        }
        EXPECT_EQ(200, status);
        EXPECT_EQ(1, asyncReply);
        EXPECT_EQ("untouched", response);
        ASSERT_TRUE(request.exchange().waitForResponds(1));
        const auto requests = host.device()->requests();
        ASSERT_EQ(1u, requests.size());
        EXPECT_EQ(c.method, requests[0].method);
        EXPECT_EQ(c.relayedPath, requests[0].path);
        EXPECT_EQ(HostFixture::kDevice, requests[0].devIndex);
        EXPECT_EQ(jsonOrEmpty(c.relayedBody), jsonOrEmpty(requests[0].body));
        EXPECT_EQ(c.status, request.exchange().status());
        EXPECT_EQ("application/xml", request.exchange().answerHeader("Content-Type"));
        EXPECT_NE(std::string::npos, request.exchange().written().find(c.answerContains))
            << request.exchange().written();
    }
}

}  // namespace
}  // namespace korva::device_tests
