// Random and mutated answers into every covertRsp route, damaged bodies into covertUrlandBody:
// a result code, never a crash, and every success converts back the other way.
#include <gtest/gtest.h>
#include <json/writer.h>

#include "gateway/testing/harness.h"
#include "plugin/handlers/channel_cfg.h"
#include "tests/plugin/channel/channel_test_support.h"
#include "tests/plugin/fuzz_support.h"

namespace {

using namespace channel_test;
using QXKORVAProtocol::CChannelCfg;

korva::fuzz::Generator generator(unsigned seed) {
    return {seed,
            {"StreamingChannel",
             "StreamingChannelList",
             "VideoInputChannelList",
             "id",
             "channelName",
             "enabled",
             "Transport",
             "Video",
             "Audio",
             "ControlProtocolList",
             "ControlProtocol",
             "streamingTransport",
             "Unicast",
             "Multicast",
             "Security",
             "SVC",
             "SmartCodec",
             "VoiceChanger",
             "level",
             "videoCodecType",
             "maxFrameRate",
             "audioSamplingRate",
             "smoothing"},
            {"", "101", "-5", "true", "RTSP", "a&b<c>", "\xff\xfe", "]]>", "  7",
             "99999999999999999999"}};
}

TEST(ChannelFuzz, AnswersAndRequestBodies) {
    const char* const urls[] = {"/KORVA/Streaming/channels/101", "/KORVA/Streaming/channels",
                                "/KORVA/Streaming/channels/1/capabilities",
                                "/KORVA/System/Audio/channels"};
    auto random = generator(20240611);
    const Json::Value full = parseJson(fullChannelJson());
    int converted = 0;
    for (int i = 0; i < 1500; ++i) {
        Json::Value answer = full;
        for (size_t m = 1 + random.below(3); m > 0; --m) random.mutate(&answer);
        Json::Value list;
        list["StreamingChannelList"].append(full);
        list["StreamingChannelList"].append(answer);
        for (const Json::Value& value : {answer, list, random.value(5)}) {
            for (const char* url : urls) {
                SCOPED_TRACE(std::string(url) + " " + Json::FastWriter().write(value));
                std::string xml;
                const int result = CChannelCfg().covertRsp(&xml, value, url, 0);
                ASSERT_TRUE(result == 0 || result == 9) << result;
                if (result != 0) continue;
                ASSERT_TRUE(flatten(xml)) << xml;
                if (url == urls[0]) {
                    // What the handler writes for a client, it also reads back from one.
                    std::string json;
                    ASSERT_EQ(0, CChannelCfg::getJsonStreamingChannel(&json, xml)) << xml;
                    ++converted;
                }
            }
        }
    }
    EXPECT_GT(converted, 100);  // the round trip above really ran
    converted = 0;
    for (int i = 0; i < 1500; ++i) {
        const std::string body = random.damage(fullChannelXml());
        korva::testing::TestRequest request(1, "/KORVA/Streaming/channels/101", body);
        std::string jsonUrl;
        std::string json;
        const int result = CChannelCfg().covertUrlandBody(&jsonUrl, &json, request.holder(), "d");
        ASSERT_TRUE(result == 0 || result == 9) << body;
        if (result != 0) continue;
        ++converted;
        std::string xml;
        ASSERT_EQ(0, CChannelCfg::getXmlStreamingChannel(&xml, parseJson(json))) << body;
    }
    EXPECT_GT(converted, 10);
}

}  // namespace
