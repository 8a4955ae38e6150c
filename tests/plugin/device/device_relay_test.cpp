// The device-resource handlers through the relay to a scripted device and back to the client.
#include <gtest/gtest.h>

#include "gateway/testing/harness.h"
#include "tests/plugin/device/device_test_support.h"

namespace korva::device_tests {
namespace {

using korva::testing::HostFixture;

constexpr const char* kDeviceError =
    R"({"statusCode":4,"statusString":"Invalid Operation","errorCode":1073741830})";
constexpr const char* kDeviceOk = R"({"statusCode":1,"statusString":"OK","errorCode":1})";

const struct {
    Owner owner;
    unsigned char method;
    const char* url;
    const char* body;
    const char* deviceAnswer;
    const char* relayedPath;  // nullptr: the device must not be asked
    const char* relayedBody;
    int status;
    const char* answerContains;
} kCases[] = {
    {kMaintain, GET, "/KORVA/System/deviceInfo", "",
     R"({"DeviceInfo":{"deviceName":"Lobby","deviceID":"1","serialNumber":"S","macAddress":"M",
         "firmwareVersion":"F","deviceType":"IPC"}})",
     "/KORVA/System/deviceInfo", "", 200, "<deviceName>Lobby</deviceName>"},
    {kMaintain, GET, "/KORVA/ContentMgmt/Storage/hdd", "", kDeviceError, "/KORVA/System/deviceInfo",
     "", 403, "<subStatusCode>invalidOperation</subStatusCode>"},
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
};

TEST(DeviceRelay, RequestsReachTheDeviceAndAnswersReachTheClient) {
    for (const auto& c : kCases) {
        SCOPED_TRACE(std::string(c.url) + " " + c.body);
        HostFixture host;
        host.device()->setDefaultAnswer(c.deviceAnswer);
        auto request = HostFixture::authorizedRequest(c.method, c.url, c.body);
        int handled = 0, asyncReply = 0;
        std::string response;
        const int status =
            makeHandler(c.owner)->proc(&handled, &response, &asyncReply, request.holder());
        if (c.relayedPath == nullptr) {
            EXPECT_EQ(c.status, status);
            EXPECT_EQ(0, asyncReply);
            EXPECT_NE(std::string::npos, response.find(c.answerContains)) << response;
            EXPECT_TRUE(host.device()->requests().empty());
            continue;
        }
        EXPECT_EQ(200, status);
        EXPECT_EQ(1, asyncReply);
        ASSERT_TRUE(request.exchange().waitForResponds(1));
        const auto requests = host.device()->requests();
        ASSERT_EQ(1u, requests.size());
        EXPECT_EQ(c.method, requests[0].method);
        EXPECT_EQ(c.relayedPath, requests[0].path);
        EXPECT_EQ(HostFixture::kDevice, requests[0].devIndex);
        EXPECT_EQ(c.relayedBody, requests[0].body);
        EXPECT_EQ(c.status, request.exchange().status());
        EXPECT_EQ("application/xml", request.exchange().answerHeader("Content-Type"));
        EXPECT_NE(std::string::npos, request.exchange().written().find(c.answerContains))
            << request.exchange().written();
    }
}

}  // namespace
}  // namespace korva::device_tests
