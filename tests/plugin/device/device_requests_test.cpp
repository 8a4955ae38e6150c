// Which handler takes which path and method on the request and answer sides, and the gateway
// URL and JSON body of every route, including the command and search bodies.
#include <gtest/gtest.h>

#include "gateway/testing/harness.h"
#include "plugin/handlers/record_operation.h"
#include "tests/plugin/device/device_test_support.h"

namespace korva::device_tests {
namespace {

const std::string kTimed = std::string("\"metadataList\":[{\"metadataDescriptor\":\"") +
                           QXKORVAProtocol::kTimedRecordingMetadata + "\"}],";
const std::string kDefaults = "\"searchResultPostion\":0,\"trackIDList\":[{\"trackID\":101}]}}\n";
constexpr int kBadParameters = 0x60000001;

struct RequestCase {
    Owner owner;
    unsigned char method;
    std::string url;
    std::string body;
    int result;
    std::string gatewayPath;  // "" when no URL may be left
    std::string json;
    const char* log = nullptr;
};

const RequestCase kCases[] = {
    {kMaintain, GET, "/KORVA/System/deviceInfo", "", 0, "/KORVA/System/deviceInfo", ""},
    {kMaintain, GET, "/KORVA/System/Video/inputs/channels?x=1", "", 0,
     "/KORVA/System/Video/inputs/channels", ""},
    {kMaintain, GET, "/KORVA/ContentMgmt/Storage/hdd", "", 0, "/KORVA/System/deviceInfo", ""},
    {kEvent, GET, "/KORVA/Smart/capabilities/SmartCap", "", 0, "/KORVA/Smart/capabilities", ""},
    {kEvent, GET, "/KORVA/System/capabilities", "", 0, "/KORVA/Smart/capabilities", ""},
    // Output trigger.
    {kEvent, PUT, "/KORVA/System/IO/outputs/17/trigger",
     "<?xml version=\"1.0\"?><IOPortData><x/><outputState>low</outputState></IOPortData>", 0,
     "/KORVA/System/IO/outputs/17/trigger", "{\"IOPortData\":{\"outputState\":\"low\"}}\n"},
    {kEvent, PUT, "/KORVA/System/IO/outputs/3/trigger", "<Other/>", 0,
     "/KORVA/System/IO/outputs/3/trigger", "null\n"},
    {kEvent, PUT, "/KORVA/System/IO/outputs/1/trigger",
     "<IOPortData><outputState>High</outputState></IOPortData>", 1, "", "",
     "xml outputState is wrong param"},
    {kEvent, PUT, "/KORVA/System/IO/outputs/1/trigger", "<IOPortData><s>low</s></IOPortData>", 1,
     "", "", "xml cannot find outputState"},
    {kEvent, PUT, "/KORVA/System/IO/outputs/1/trigger", "", 1, "", "", "Parse failed"},
    // Image channel to streaming channel.
    {kImage, GET, "/KORVA/Image/channels/100/capabilities", "", 0,
     "/KORVA/Streaming/channels/10001", ""},
    {kImage, GET, "/KORVA/Image/channels/-3/capabilities", "", 0, "/KORVA/Streaming/channels/-299",
     ""},
    // PTZ.
    {kPtz, PUT, "/KORVA/PTZCtrl/channels/4/presets/12/goto", "<x/>", 0,
     "/KORVA/PTZCtrl/channels/4/presets/12/goto", ""},
    {kPtz, PUT, "/KORVA/PTZCtrl/channels/1/continuous",
     "<PTZData><pan>60</pan><zoom>-5</zoom></PTZData>", 0, "/KORVA/PTZCtrl/channels/1/continuous",
     "{\"PTZData\":{\"pan\":60,\"zoom\":-5}}\n"},
    {kPtz, PUT, "/KORVA/PTZCtrl/channels/1/continuous",
     "<PTZData><pan>left</pan><tilt> 7x</tilt><zoom/></PTZData>", 0,
     "/KORVA/PTZCtrl/channels/1/continuous", "{\"PTZData\":{\"pan\":0,\"tilt\":7,\"zoom\":0}}\n"},
    {kPtz, PUT, "/KORVA/PTZCtrl/channels/1/continuous", "<Move><pan>1</pan></Move>", 1, "", ""},
    {kPtz, PUT, "/KORVA/PTZCtrl/channels/1/presets/5",
     "<PTZPreset><enabled>yes</enabled><id>5</id><presetName>Door</presetName></PTZPreset>", 0,
     "/KORVA/PTZCtrl/channels/1/presets/5",
     "{\"PTZPreset\":{\"enabled\":true,\"id\":\"5\",\"presetName\":\"Door\"}}\n"},
    {kPtz, PUT, "/KORVA/PTZCtrl/channels/1/presets/5", "<PTZPreset/>", 0,
     "/KORVA/PTZCtrl/channels/1/presets/5", "{\"PTZPreset\":null}\n"},
    {kPtz, PUT, "/KORVA/PTZCtrl/channels/1/presets/5", "<PTZPreset><id/></PTZPreset>", 1, "", ""},
    {kPtz, PUT, "/KORVA/PTZCtrl/channels/1/presets/5", "<PTZPreset>", 1, "", ""},
    // Content search.
    {kRecord, POST, "/KORVA/ContentMgmt/search",
     "<CMSearchDescription><searchID>S1</searchID><trackIDList><trackID>201</trackID>"
     "<trackID>301</trackID></trackIDList><timeSpanList><timeSpan><startTime>T0</startTime>"
     "<endTime>T1</endTime></timeSpan><timeSpan><startTime>T2</startTime></timeSpan>"
     "</timeSpanList><contentTypeList><contentType>video</contentType></contentTypeList>"
     "<maxResults>40</maxResults><searchResultPostion>10</searchResultPostion><metadataList>"
     "<metadataDescriptor>M</metadataDescriptor></metadataList></CMSearchDescription>",
     0, "/KORVA/ContentMgmt/search",
     "{\"CMSearchDescription\":{\"contentTypeList\":[{\"contentType\":\"video\"}],"
     "\"maxResults\":40,\"metadataList\":[{\"metadataDescriptor\":\"M\"}],\"searchID\":\"S1\","
     "\"searchResultPostion\":10,\"timeSpanList\":[{\"timeSpan\":{\"endTime\":\"T1\","
     "\"startTime\":\"T0\"}}],\"trackIDList\":[{\"trackID\":201}]}}\n"},
    {kRecord, POST, "/KORVA/ContentMgmt/search/", "<CMSearchDescription/>", 0,
     "/KORVA/ContentMgmt/search", "{\"CMSearchDescription\":{" + kTimed + kDefaults},
    {kRecord, POST, "/KORVA/ContentMgmt/search",
     "<CMSearchDescription><metadataList/></CMSearchDescription>", 0, "/KORVA/ContentMgmt/search",
     "{\"CMSearchDescription\":{" + kDefaults},
    // maxResults is found anywhere; the other children only in their order.
    {kRecord, POST, "/KORVA/ContentMgmt/search",
     "<CMSearchDescription><searchResultPostion>7</searchResultPostion><maxResults>5</maxResults>"
     "<searchID/></CMSearchDescription>",
     0, "/KORVA/ContentMgmt/search",
     "{\"CMSearchDescription\":{\"maxResults\":5," + kTimed + "\"searchID\":\"\"," + kDefaults},
    {kRecord, POST, "/KORVA/ContentMgmt/search", "<CMSearchDescription>", kBadParameters,
     "/KORVA/ContentMgmt/search", ""},
};

TEST(DeviceRequests, GatewayUrlAndBodyOfEveryRoute) {
    for (const RequestCase& c : kCases) {
        SCOPED_TRACE(c.url + " " + c.body);
        korva::testing::LogCapture log;
        const Relayed relayed = convertRequest(c.owner, c.method, c.url, c.body);
        EXPECT_EQ(c.result, relayed.result);
        const std::string url = c.gatewayPath + "?format=json&devIndex=" + kDevice;
        EXPECT_EQ(c.gatewayPath.empty() ? "" : url, relayed.url);
        EXPECT_EQ(c.json, relayed.body);
        if (c.log != nullptr) {
            EXPECT_TRUE(log.contains(c.log, 5));
        }
    }
}

const struct {
    unsigned char method;
    const char* url;
    Owner owner;
} kRoutes[] = {
    {GET, "/KORVA/System/deviceInfo", kMaintain},
    {PUT, "/KORVA/System/deviceInfo", kNone},
    {GET, "/KORVA/System/deviceInfo/", kNone},
    {GET, "/korva/system/deviceinfo", kNone},
    {GET, "/KORVA/System/Video/inputs/channels", kMaintain},
    {GET, "/KORVA/ContentMgmt/Storage/hdd", kMaintain},
    {GET, "/KORVA/Security/adminAccesses", kMaintain},
    {GET, "/KORVA/Smart/capabilities", kEvent},
    {GET, "/KORVA/Smart/capabilities/SmartCap", kEvent},
    {GET, "/KORVA/System/IO", kEvent},
    {GET, "/KORVA/System/capabilities", kEvent},
    {PUT, "/KORVA/System/IO/outputs/2/trigger", kEvent},
    {GET, "/KORVA/System/IO/outputs/2/trigger", kNone},
    {PUT, "/KORVA/System/IO/outputs/two/trigger", kNone},
    {GET, "/KORVA/Image/channels/-1/capabilities", kImage},
    {GET, "/KORVA/Streaming/channels/101/capabilities", kNone},
    {GET, "/KORVA/PTZCtrl/channels", kPtz},
    {PUT, "/KORVA/PTZCtrl/channels/1/continuous", kPtz},
    {PUT, "/KORVA/PTZCtrl/channels/1/presets/2/goto", kPtz},
    {DEL, "/KORVA/PTZCtrl/channels/1/presets/2/goto", kNone},
    {PUT, "/KORVA/PTZCtrl/channels/1/presets/2", kPtz},
    {DEL, "/KORVA/PTZCtrl/channels/1/presets/2", kPtz},
    {GET, "/KORVA/PTZCtrl/channels/1/presets/2", kNone},
    {PUT, "/KORVA/PTZCtrl/channels/1/presets", kNone},
    {PUT, "/KORVA/PTZCtrl/channels/1/homeposition/goto", kPtz},
    {POST, "/KORVA/ContentMgmt/search", kRecord},
    {POST, "/KORVA/ContentMgmt/search/", kRecord},
    {GET, "/KORVA/Event/notification/alertStream", kNone},
};

// matchURL takes only its own routes; covertUrlandBody refuses what matchURL declines; on the
// answer chain only the handler that took the request claims the answer.
TEST(DeviceRoutes, EachRequestAndAnswerBelongsToOneHandler) {
    const Json::Value answer(Json::objectValue);
    for (const auto& route : kRoutes) {
        for (int h = 0; h < kOwnerCount; ++h) {
            const Owner owner = static_cast<Owner>(h);
            const bool mine = owner == route.owner;
            SCOPED_TRACE(std::to_string(h) + " " + route.url);
            EXPECT_EQ(mine ? 0 : -1, makeHandler(owner)->matchURL(route.url, route.method));
            if (!mine) {
                EXPECT_NE(0, convertRequest(owner, route.method, route.url, "<a/>").result);
            }
            if (route.owner == kNone) continue;
            std::string xml;
            const int claimed =
                makeHandler(owner)->covertRsp(&xml, answer, route.url, route.method);
            EXPECT_EQ(mine, claimed != -1);
        }
    }
}

}  // namespace
}  // namespace korva::device_tests
