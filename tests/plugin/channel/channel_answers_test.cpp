// Answers not converted from device data: the fixed capability document and the audio channel
// list synthesised from the video inputs.
#include <gtest/gtest.h>

#include <string>

#include "gateway/testing/harness.h"
#include "plugin/handlers/channel_cfg.h"
#include "tests/plugin/channel/channel_test_support.h"

namespace {

using namespace channel_test;
using QXKORVAProtocol::CChannelCfg;

constexpr int kGet = 0;
constexpr int kPut = 1;

TEST(ChannelCapabilities, FixedDocument) {
    std::string xml;
    ASSERT_EQ(0, CChannelCfg::covertChannelIDCapRspBody(
                     &xml, parseJson(R"({"StreamingChannel":{}})"), kGet));
    const XmlEntries expected = {
        {"/StreamingChannel", ""},
        {"/StreamingChannel/Video", ""},
        {"/StreamingChannel/Video/videoCodecType", ""},
        {"/StreamingChannel/Video/videoResolutionWidth", ""},
        {"/StreamingChannel/Video/videoResolutionHeight", ""},
        {"/StreamingChannel/Video/videoQualityControlType", ""},
        {"/StreamingChannel/Video/constantBitRate", ""},
        {"/StreamingChannel/Video/fixedQuality", ""},
        {"/StreamingChannel/Video/maxFrameRate", ""},
        {"/StreamingChannel/Video/keyFrameInterval", ""},
    };
    EXPECT_EQ(expected, entriesOf(xml));
    // The attributes, character for character and in order.
    for (const char* attributes : {
             R"(<videoCodecType opt="H.264,H.265")",
             R"(<videoResolutionWidth opt="1920,1280,704")",
             R"(<videoResolutionHeight opt="1280,720,576")",
             R"(<videoQualityControlType opt="CBR,VBR")",
             R"(<constantBitRate min="512" max="8192")",
             R"(<fixedQuality opt="1,20,40,60,80,100")",
             R"(<maxFrameRate opt="3000,2500,2200,2000,1800,1600,1500,1200,1000,800,600,5000,)"
             R"(400,200,100,50,25,12,6")",
             R"(<keyFrameInterval min="1" max="400")",
         }) {
        EXPECT_NE(std::string::npos, xml.find(attributes)) << attributes;
    }
    EXPECT_EQ(std::string::npos, xml.find("<?xml"));
    EXPECT_EQ(0u, xml.find("<StreamingChannel>"));
}

TEST(ChannelCapabilities, DeviceContentDoesNotChangeTheDocument) {
    std::string first;
    std::string second;
    ASSERT_EQ(0, CChannelCfg::getXmlChannelCapabilities(
                     &first, parseJson(R"({"StreamingChannel":{"Video":{"maxFrameRate":1}}})")));
    ASSERT_EQ(0, CChannelCfg::getXmlChannelCapabilities(
                     &second, parseJson(R"({"StreamingChannel":[1,2,3],"other":true})")));
    EXPECT_EQ(first, second);
}

TEST(ChannelCapabilities, NeedsStreamingChannelAndGet) {
    korva::testing::LogCapture log(1);
    for (const char* answer : {"{}", "null", "[]", R"("StreamingChannel")", R"({"Video":{}})"}) {
        std::string xml = "untouched";
        EXPECT_EQ(9, CChannelCfg::covertChannelIDCapRspBody(&xml, parseJson(answer), kGet))
            << answer;
        EXPECT_EQ("untouched", xml) << answer;
    }
    EXPECT_TRUE(log.contains("/KORVA/Streaming/channels/<id>/capabilities rep={\"Video\":{}}", 2));

    std::string xml = "untouched";
    EXPECT_EQ(-1, CChannelCfg::covertChannelIDCapRspBody(
                      &xml, parseJson(R"({"StreamingChannel":{}})"), kPut));
    EXPECT_EQ("untouched", xml);
}

TEST(ChannelAudioList, OneAudioChannelPerVideoInput) {
    const struct {
        const char* answer;
        int channels;  // -1: refused
    } cases[] = {
        {"null", 1},
        {R"({"VideoInputChannelList":[{"id":"1"},{"id":"2"},{"id":"3"},{"id":"4"}]})", 4},
        {R"({"VideoInputChannelList":[7]})", 1},
        {R"({"VideoInputChannelList":[]})", 0},
        {R"({"VideoInputChannelList":{"VideoInputChannel":{}}})", 0},
        {R"({"VideoInputChannelList":null})", 0},
        {"{}", -1},
        {R"({"VideoInputChannel":[{}]})", -1},
        {"[]", -1},
        {"3", -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.answer);
        std::string xml = "untouched";
        const int result = CChannelCfg::getXmlAudioChannelList(&xml, parseJson(c.answer));
        if (c.channels < 0) {
            EXPECT_EQ(9, result);
            EXPECT_EQ("untouched", xml);
            continue;
        }
        ASSERT_EQ(0, result);
        EXPECT_EQ(0u, xml.find("<?xml version=\"1.0\" encoding=\"UTF-8\"?>"));
        XmlEntries expected = {{"/AudioChannelList", ""}};
        for (int id = 1; id <= c.channels; ++id) {
            expected.push_back({"/AudioChannelList/AudioChannel", ""});
            expected.push_back({"/AudioChannelList/AudioChannel/id", std::to_string(id)});
            expected.push_back({"/AudioChannelList/AudioChannel/enabled", "true"});
        }
        EXPECT_EQ(expected, entriesOf(xml));
    }
}

}  // namespace
