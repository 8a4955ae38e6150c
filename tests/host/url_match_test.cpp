// URL matching of the REST protocol base class and the method names.
#include <gtest/gtest.h>

#include "host/restful_protocol.h"

using QXBase::CRESTfulProtocol;

TEST(UrlMatch, PlainPatterns) {
    struct Case {
        const char* url;
        const char* pattern;
        bool match;
    };
    const Case cases[] = {
        {"/KORVA/System/deviceInfo", "/KORVA/System/deviceInfo", true},
        {"/KORVA/System/deviceInfo?format=xml", "/KORVA/System/deviceInfo", true},
        {"/KORVA/System/deviceInfo?", "/KORVA/System/deviceInfo", true},
        {"/KORVA/System/deviceInfo/", "/KORVA/System/deviceInfo", false},
        {"/KORVA/System/deviceinfo", "/KORVA/System/deviceInfo", false},
        {"/KORVA/System", "/KORVA/System/deviceInfo", false},
        {"", "", true},
        {"?a=b", "", true},
        {"/KORVA/ContentMgmt/search/", "/KORVA/ContentMgmt/search/", true},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(CRESTfulProtocol::cmpURL(c.url, c.pattern) != 0, c.match)
            << c.url << " vs " << c.pattern;
    }
    EXPECT_EQ(CRESTfulProtocol::cmpURL("/a", nullptr), 0);
}

TEST(UrlMatch, IntegerFields) {
    struct Case {
        const char* url;
        const char* pattern;
        int count;
        bool match;
    };
    const char* const one = "/KORVA/Streaming/channels/%d";
    const char* const caps = "/KORVA/Streaming/channels/%d/capabilities";
    const char* const two = "/KORVA/PTZCtrl/channels/%d/presets/%d";
    const Case cases[] = {
        {"/KORVA/Streaming/channels/101", one, 1, true},
        {"/KORVA/Streaming/channels/-3", one, 1, true},
        {"/KORVA/Streaming/channels/0?x=1", one, 1, true},
        {"/KORVA/Streaming/channels/", one, 1, false},
        {"/KORVA/Streaming/channels/-", one, 1, false},
        {"/KORVA/Streaming/channels/+3", one, 1, false},
        {"/KORVA/Streaming/channels/12a", one, 1, false},
        {"/KORVA/Streaming/channels/1/capabilities", one, 1, false},
        {"/KORVA/Streaming/channels/ 1", one, 1, false},
        {"/KORVA/Streaming/channels/1/capabilities", caps, 1, true},
        {"/KORVA/Streaming/channels/x/capabilities", caps, 1, false},
        {"/KORVA/Streaming/channels/1/Capabilities", caps, 1, false},
        {"/KORVA/PTZCtrl/channels/1/presets/22", two, 2, true},
        {"/KORVA/PTZCtrl/channels/1/presets/22/goto", two, 2, false},
        {"/KORVA/PTZCtrl/channels/1/presets/", two, 2, false},
        // The count must equal the number of fields in the pattern.
        {"/KORVA/Streaming/channels/1", one, 0, false},
        {"/KORVA/Streaming/channels/1", one, 2, false},
        {"/KORVA/PTZCtrl/channels/1/presets/2", two, 1, false},
        {"/KORVA/Streaming/channels", "/KORVA/Streaming/channels", 0, true},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(CRESTfulProtocol::cmpURLWithInt(c.url, c.pattern, c.count) != 0, c.match)
            << c.url << " vs " << c.pattern << " count " << c.count;
    }
    EXPECT_EQ(CRESTfulProtocol::cmpURLWithInt("/a", nullptr, 0), 0);
}

TEST(UrlMatch, MethodNamesAndClassificationHelpers) {
    const char* const names[] = {"GET", "PUT", "POST", "DELETE", "UNKNOWN"};
    for (unsigned char m = 0; m < 5; ++m) EXPECT_EQ(CRESTfulProtocol::GetMethod(m), names[m]);
    EXPECT_EQ(CRESTfulProtocol::GetMethod(0xFF), "UNKNOWN");
    CRESTfulProtocol protocol;
    EXPECT_NE(protocol.IsJsonURL("/a?x=1&format=JSON"), 0);
    EXPECT_EQ(protocol.IsJsonURL("/format=json"), 0);
    EXPECT_NE(protocol.isDeviceURL("/a?format=json&devIndex=cam-1"), 0);
    EXPECT_EQ(protocol.isDeviceURL("/a?devIndex="), 0);
    EXPECT_NE(protocol.isLanguageCNURL("/a?language=zh"), 0);
    EXPECT_EQ(protocol.isLanguageCNURL("/a?language=en"), 0);
}
