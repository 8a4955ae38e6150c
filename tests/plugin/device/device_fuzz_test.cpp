// Random and mutated answers into every covertRsp, random and damaged XML into every
// covertUrlandBody: nothing throws and every result is one the relay can answer.
#include <gtest/gtest.h>
#include <json/reader.h>

#include "gateway/testing/harness.h"
#include "tests/plugin/device/device_test_support.h"
#include "tests/plugin/fuzz_support.h"

namespace korva::device_tests {
namespace {

const struct {
    Owner owner;
    unsigned char method;
    const char* url;
    const char* sample;  // a valid device answer, the seed of mutations
} kRoutes[] = {
    {kMaintain, GET, "/KORVA/System/deviceInfo",
     R"({"DeviceInfo":{"deviceName":"a","deviceID":"b","serialNumber":"c","macAddress":"d",
         "firmwareVersion":"e","firmwareReleasedDate":"f","bootVersion":"g","deviceType":"h"}})"},
    {kMaintain, GET, "/KORVA/System/Video/inputs/channels",
     R"({"VideoInputChannelList":[{"VideoInputChannel":{"id":"1","inputPort":"1","name":"n"}}]})"},
    {kEvent, GET, "/KORVA/Smart/capabilities", R"({"SmartCap":{"isSupportROI":true}})"},
    {kEvent, GET, "/KORVA/System/IO",
     R"({"IOPortList":{"IOInputPortList":[{"IOInputPort":{"id":1,"enable":true,"triggering":"low",
         "name":"i"}}],"IOOutputPortList":[{"IOOutputPort":{"id":2,"enable":false,"name":"o"}}]}})"},
    {kEvent, PUT, "/KORVA/System/IO/outputs/1/trigger", "{}"},
    {kPtz, GET, "/KORVA/PTZCtrl/channels",
     R"({"PTZChannelList":[{"PTZChannel":{"id":1,"enabled":true,"serialNumber":1,"videoInputID":1,
         "panMaxSpeed":1,"controlProtocol":"p","controlAddress":{"enabled":true,"Address":"0"},
         "PTZRs485Para":{"baudRate":9600,"dataBits":8,"parityType":"n","stopBits":"1",
         "flowCtrl":"n"},"manualControlSpeed":"s"}}]})"},
    {kPtz, DEL, "/KORVA/PTZCtrl/channels/1/presets/2", "{}"},
    {kRecord, POST, "/KORVA/ContentMgmt/search",
     R"({"CMSearchResult":{"searchID":"s","responseStatus":true,"numOfMatches":1,"matchList":[
         {"searchMatchItem":{"sourceID":"x","trackID":101,"timeSpan":{"startTime":"a","endTime":"b"},
         "mediaSegmentDescriptor":{"contenType":"video","codecType":"H.264","playbackURI":
         "rtsp://h/dac/camera=6f1d2c3b-aaaa-bbbb-cccc-0123456789ab1/MAIN/r?a=1&amp;b=2"},
         "metadataMatches":{"metadataDescriptor":"m"}}}]}})"},
};

korva::fuzz::Generator generator(unsigned seed) {
    return {seed,
            {"DeviceInfo", "deviceName", "VideoInputChannelList", "VideoInputChannel", "id",
             "inputPort", "name", "SmartCap", "isSupportROI", "IOPortList", "IOInputPortList",
             "IOInputPort", "enable", "PTZChannelList", "PTZChannel", "enabled", "controlAddress",
             "PTZRs485Para", "CMSearchResult", "numOfMatches", "matchList", "searchMatchItem",
             "sourceID", "trackID", "timeSpan", "startTime", "mediaSegmentDescriptor",
             "playbackURI", "metadataMatches", "metadataDescriptor", "IOPortData", "outputState",
             "PTZData", "pan", "PTZPreset", "presetName", "CMSearchDescription", "searchID",
             "trackIDList", "timeSpanList", "maxResults", "metadataList"},
            {"", "true", "high", "low", "-2147483649", " 7", "a&amp;b", "\xC3\xA9",
             "rtsp://h/dac/camera=6f1d2c3b-aaaa-bbbb-cccc-0123456789ab99999999999/SUB1/x?y"}};
}

TEST(DeviceFuzz, AnswersAndRequestBodiesConvertOrFailCleanly) {
    korva::testing::LogCapture quiet;
    auto random = generator(20240611);
    int outcomes[2] = {0, 0};
    for (int iteration = 0; iteration < 1500; ++iteration) {
        for (const auto& route : kRoutes) {
            Json::Value root = json(route.sample);
            if (iteration % 3 == 0) root = random.value(4);
            for (size_t n = iteration % 3 == 0 ? 0 : 1 + random.below(3); n > 0; --n) {
                random.mutate(&root);
            }
            std::string xml;
            int result = -2;
            ASSERT_NO_THROW(
                result = makeHandler(route.owner)->covertRsp(&xml, root, route.url, route.method))
                << route.url << " " << root.toStyledString();
            ASSERT_TRUE(result == 0 || result == 9) << route.url << " result " << result;
            ++outcomes[result == 0 ? 0 : 1];
        }
    }
    EXPECT_GT(outcomes[0], 1000);  // both outcomes really occur
    EXPECT_GT(outcomes[1], 1000);
    const struct {
        Owner owner;
        unsigned char method;
        const char* url;
    } routes[] = {
        {kEvent, PUT, "/KORVA/System/IO/outputs/3/trigger"},
        {kPtz, PUT, "/KORVA/PTZCtrl/channels/1/continuous"},
        {kPtz, PUT, "/KORVA/PTZCtrl/channels/1/presets/2"},
        {kPtz, PUT, "/KORVA/PTZCtrl/channels/1/homeposition/goto"},
        {kRecord, POST, "/KORVA/ContentMgmt/search"},
        {kImage, GET, "/KORVA/Image/channels/1/capabilities"},
    };
    random = generator(77);
    int relayed = 0;
    for (int iteration = 0; iteration < 600; ++iteration) {
        std::string body = random.element(3);
        if (iteration % 2 == 0) body = random.damage(body);
        for (const auto& route : routes) {
            Relayed out;
            ASSERT_NO_THROW(out = convertRequest(route.owner, route.method, route.url, body))
                << route.url << " " << body;
            ASSERT_TRUE(out.result == 0 || out.result == 1 || out.result == 0x60000001)
                << route.url << " result " << out.result;
            if (out.result != 0) continue;
            ++relayed;
            EXPECT_EQ(0u, out.url.rfind("/KORVA/", 0)) << out.url;
            EXPECT_NE(std::string::npos, out.url.find("?format=json&devIndex=dev-1")) << out.url;
            Json::Value parsed;
            EXPECT_TRUE(out.body.empty() || Json::Reader().parse(out.body, parsed)) << out.body;
        }
    }
    EXPECT_GT(relayed, 1200);
}

}  // namespace
}  // namespace korva::device_tests
