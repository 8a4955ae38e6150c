// The built-in simulated camera: what it answers to each gateway request, and which values a
// PUT may carry.
#include "gateway/sim/sim_camera.h"

#include <gtest/gtest.h>

#include "gateway/sim/device_error.h"
#include "gateway/sim/json_util.h"

namespace korva::sim {
namespace {

using korva::host::DeviceRequest;

DeviceRequest request(int method, const std::string& path, const std::string& body = "") {
    DeviceRequest r;
    r.method = method;
    r.path = path;
    r.url = path + "?format=json&devIndex=cam-1";
    r.devIndex = "cam-1";
    r.body = body;
    return r;
}

Json::Value parsed(const std::string& text) {
    Json::Value value;
    EXPECT_TRUE(parseJson(text, &value)) << text;
    return value;
}

// The errorCode of a status answer, 0 for a payload.
int errorCodeOf(const std::string& text) {
    const Json::Value value = parsed(text);
    return value.isMember("errorCode") ? value["errorCode"].asInt() : 0;
}

TEST(SimCamera, AnswersEachRouteWithItsPayloadOrStatus) {
    struct Case {
        int method;
        const char* path;
        const char* body;
        const char* payloadMember;  // "" when a status object is expected
        int errorCode;
    };
    const Case cases[] = {
        {0, "/KORVA/System/deviceInfo", "", "DeviceInfo", 0},
        {0, "/KORVA/System/Video/inputs/channels", "", "VideoInputChannelList", 0},
        {0, "/KORVA/Streaming/channels", "", "StreamingChannelList", 0},
        {0, "/KORVA/Streaming/channels/203", "", "StreamingChannel", 0},
        {0, "/KORVA/Streaming/channels/102/capabilities", "", "StreamingChannel", 0},
        {0, "/KORVA/Smart/capabilities", "", "SmartCap", 0},
        {0, "/KORVA/PTZCtrl/channels", "", "PTZChannelList", 0},
        {1, "/KORVA/System/IO/outputs/1/trigger", R"({"IOPortData":{"outputState":"high"}})", "",
         kOk},
        {1, "/KORVA/PTZCtrl/channels/1/homeposition/goto", "", "", kOk},
        {0, "/KORVA/Streaming/channels/104", "", "", kInvalidChannel},
        {1, "/KORVA/System/IO/outputs/1/trigger", "null\n", "", kBadJsonContent},
        {1, "/KORVA/System/IO/outputs/1/trigger", R"({"IOPortData":{"outputState":"High"}})", "",
         kBadParameters},
        {1, "/KORVA/PTZCtrl/channels/1/continuous", R"({"PTZData":{"pan":101}})", "",
         kBeyondRangeLimit},
        {1, "/KORVA/PTZCtrl/channels/2/continuous", R"({"PTZData":{"pan":1}})", "",
         kInvalidChannel},
        {3, "/KORVA/PTZCtrl/channels/1/presets/99", "", "", kIdNotExist},
        {1, "/KORVA/Streaming/channels/101", "not json", "", kBadJsonFormat},
        {1, "/KORVA/Streaming/channels/101", R"({"StreamingChannel":[]})", "", kBadJsonContent},
        {1, "/KORVA/Streaming/channels/101", R"({"StreamingChannel":{"id":"102"}})", "",
         kBadParameters},
        {1, "/KORVA/Streaming/channels/101",
         R"({"StreamingChannel":{"Transport":{"ControlProtocolList":{}}}})", "", kBadParameters},
        {1, "/KORVA/Streaming/channels/101",
         R"({"StreamingChannel":{"Transport":{"ControlProtocolList":[{"ControlProtocol":{"streamingTransport":"UDP"}}]}}})",
         "", kBeyondRangeLimit},
        {2, "/KORVA/System/deviceInfo", "", "", kMethodNotAllowed},
        {0, "/KORVA/System/deviceInfo/", "", "", kNotSupport},
        {0, "/KORVA/Streaming/channels/abc", "", "", kNotSupport},
    };
    for (const Case& c : cases) {
        SimCamera camera("cam-1", 1700000000);
        const std::string answer = camera.answer(request(c.method, c.path, c.body));
        SCOPED_TRACE(std::string(c.path) + " -> " + answer);
        if (*c.payloadMember) {
            EXPECT_TRUE(parsed(answer).isMember(c.payloadMember));
        } else {
            EXPECT_EQ(errorCodeOf(answer), c.errorCode);
            EXPECT_EQ(parsed(answer)["statusCode"].asUInt(),
                      static_cast<unsigned>(c.errorCode) >> 28 == 0
                          ? 1u
                          : static_cast<unsigned>(c.errorCode) >> 28);
        }
    }
}

TEST(SimCamera, StreamingChannelPutKeepsValidChangesAndRefusesOthers) {
    struct Case {
        const char* video;  // members merged into Video
        int errorCode;      // 0: accepted
    };
    const Case cases[] = {
        {R"({"videoResolutionWidth":1280,"videoResolutionHeight":720})", 0},
        {R"({"videoCodecType":"MJPEG"})", kBeyondRangeLimit},
        {R"({"videoResolutionWidth":1000})", kBeyondRangeLimit},
        {R"({"maxFrameRate":2400})", kBeyondRangeLimit},
        {R"({"keyFrameInterval":0})", kBeyondRangeLimit},
        {R"({"fixedQuality":50})", kBeyondRangeLimit},
        {R"({"videoResolutionWidth":"1280"})", kBadParameters},
        {R"({"videoInputChannelID":"2"})", kBadParameters},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.video);
        SimCamera camera("cam-1", 1700000000);
        camera.answer(request(0, "/KORVA/Streaming/channels/101"));  // kept until a PUT
        Json::Value body;
        body["StreamingChannel"]["id"] = "101";
        body["StreamingChannel"]["Video"] = parsed(c.video);
        const std::string answer =
            camera.answer(request(1, "/KORVA/Streaming/channels/101", writeJson(body)));
        const Json::Value after =
            parsed(camera.answer(request(0, "/KORVA/Streaming/channels/101")))["StreamingChannel"];
        if (c.errorCode == 0) {
            EXPECT_EQ(errorCodeOf(answer), static_cast<int>(kOk));
            for (const auto& name : body["StreamingChannel"]["Video"].getMemberNames()) {
                EXPECT_EQ(after["Video"][name], body["StreamingChannel"]["Video"][name]) << name;
            }
        } else {
            EXPECT_EQ(errorCodeOf(answer), c.errorCode);
            EXPECT_EQ(after["Video"]["videoResolutionWidth"].asInt(), 1920);  // unchanged
        }
    }
}

}  // namespace
}  // namespace korva::sim
