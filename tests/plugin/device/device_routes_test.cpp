// Which handler takes which path and method, on the request side and on the answer side.
#include <gtest/gtest.h>

#include "tests/plugin/device/device_test_support.h"

namespace korva::device_tests {
namespace {

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

TEST(DeviceRoutes, OverlongDeviceIndexIsRefusedNotCut) {
    const std::string devIndex(3000, 'd');
    const struct {
        Owner owner;
        unsigned char method;
        const char* url;
        const char* body;
    } cases[] = {
        {kMaintain, GET, "/KORVA/System/deviceInfo", ""},
        {kEvent, PUT, "/KORVA/System/IO/outputs/1/trigger",
         "<IOPortData><outputState>high</outputState></IOPortData>"},
        {kImage, GET, "/KORVA/Image/channels/1/capabilities", ""},
        {kPtz, PUT, "/KORVA/PTZCtrl/channels/1/continuous", "<PTZData><pan>1</pan></PTZData>"},
        {kRecord, POST, "/KORVA/ContentMgmt/search", "<CMSearchDescription/>"},
    };
    for (const auto& c : cases) {
        const Relayed relayed = convertRequest(c.owner, c.method, c.url, c.body, devIndex);
        EXPECT_NE(0, relayed.result) << c.url;
        EXPECT_EQ("", relayed.url) << c.url;
    }
}

}  // namespace
}  // namespace korva::device_tests
