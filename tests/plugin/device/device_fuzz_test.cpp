// Bounded random testing: random and mutated device answers for every answer conversion, and
// random and damaged XML bodies for every request conversion. Nothing may throw, and every
// result must be one the relay knows how to answer.
#include <gtest/gtest.h>
#include <json/reader.h>

#include <random>

#include "gateway/testing/harness.h"
#include "tests/plugin/device/device_test_support.h"

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

const char* const kKeys[] = {"DeviceInfo",
                             "deviceName",
                             "VideoInputChannelList",
                             "VideoInputChannel",
                             "id",
                             "inputPort",
                             "name",
                             "SmartCap",
                             "isSupportROI",
                             "IOPortList",
                             "IOInputPortList",
                             "IOInputPort",
                             "enable",
                             "PTZChannelList",
                             "PTZChannel",
                             "enabled",
                             "controlAddress",
                             "PTZRs485Para",
                             "CMSearchResult",
                             "numOfMatches",
                             "matchList",
                             "searchMatchItem",
                             "sourceID",
                             "trackID",
                             "timeSpan",
                             "startTime",
                             "mediaSegmentDescriptor",
                             "playbackURI",
                             "metadataMatches",
                             "metadataDescriptor"};

const char* const kTexts[] = {
    "",         "true",
    "high",     "a&amp;b",
    "\xC3\xA9", "rtsp://h/dac/camera=6f1d2c3b-aaaa-bbbb-cccc-0123456789ab99999999999/SUB1/x?y"};

class Random {
  public:
    explicit Random(uint32_t seed) : m_rng(seed) {}
    size_t below(size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(m_rng); }
    template <typename T, size_t N>
    const T& pick(const T (&items)[N]) {
        return items[below(N)];
    }

    Json::Value value(int depth) {
        const double reals[] = {3.0, -0.5, 1e300, 2147483647.5};
        switch (below(depth > 0 ? 10 : 7)) {
            case 0:
                return Json::Value();
            case 1:
                return Json::Value(below(2) == 0);
            case 2:
                return Json::Value(static_cast<int>(below(2000)) - 1000);
            case 3:
                return Json::Value(Json::UInt64(1) << (31 + below(33)));
            case 4:
                return Json::Value(pick(reals));
            case 5:
                return Json::Value(pick(kTexts));
            case 6:
                return Json::Value(pick(kKeys));
            case 7: {
                Json::Value array(Json::arrayValue);
                for (size_t i = below(4); i > 0; --i) array.append(value(depth - 1));
                return array;
            }
            default: {
                Json::Value object(Json::objectValue);
                for (size_t i = below(5); i > 0; --i) object[pick(kKeys)] = value(depth - 1);
                return object;
            }
        }
    }

    // Replaces one node of root (possibly root itself) by a random value, or removes a member.
    void mutate(Json::Value& root) {
        std::vector<Json::Value*> nodes;
        collect(root, nodes);
        Json::Value* node = nodes[below(nodes.size())];
        if (node->isObject() && !node->empty() && below(3) == 0) {
            const auto names = node->getMemberNames();
            node->removeMember(names[below(names.size())]);
        } else {
            *node = value(2);
        }
    }

    std::string xmlElement(int depth) {
        static const char* const names[] = {"IOPortData",   "outputState",  "PTZData",
                                            "pan",          "PTZPreset",    "enabled",
                                            "id",           "presetName",   "CMSearchDescription",
                                            "searchID",     "trackIDList",  "trackID",
                                            "timeSpanList", "timeSpan",     "startTime",
                                            "maxResults",   "metadataList", "x"};
        static const char* const texts[] = {"",   "high",    "low",     "false", "-2147483649",
                                            " 7", "a&amp;b", "\xC3\xA9"};
        const std::string name = pick(names);
        std::string xml = "<" + name + ">";
        if (depth > 0 && below(2) == 0) {
            for (size_t i = below(5); i > 0; --i) xml += xmlElement(depth - 1);
        } else {
            xml += pick(texts);
        }
        return xml + "</" + name + ">";
    }

    // A random document, sometimes cut, with an inserted markup character or with noise.
    std::string xmlBody() {
        std::string body = xmlElement(3);
        switch (below(4)) {
            case 0:
                body.resize(below(body.size() + 1));
                break;
            case 1:
                body.insert(below(body.size() + 1), 1, "<>&\"'x"[below(6)]);
                break;
            case 2:
                for (char& c : body) c = below(16) == 0 ? static_cast<char>(below(256)) : c;
                break;
            default:
                break;
        }
        return body;
    }

  private:
    static void collect(Json::Value& value, std::vector<Json::Value*>& nodes) {
        nodes.push_back(&value);
        if (value.isObject()) {
            for (const std::string& name : value.getMemberNames()) collect(value[name], nodes);
        } else if (value.isArray()) {
            for (Json::ArrayIndex i = 0; i < value.size(); ++i) collect(value[i], nodes);
        }
    }

    std::mt19937 m_rng;
};

TEST(DeviceFuzz, RandomAndMutatedAnswersConvertOrFailCleanly) {
    korva::testing::LogCapture quiet;
    Random random(20240611);
    int outcomes[2] = {0, 0};
    for (int iteration = 0; iteration < 1500; ++iteration) {
        for (const auto& route : kRoutes) {
            Json::Value root = json(route.sample);
            if (iteration % 3 == 0) root = random.value(4);
            for (size_t n = iteration % 3 == 0 ? 0 : 1 + random.below(3); n > 0; --n) {
                random.mutate(root);
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
    // The answers must exercise both outcomes, or the test proves little.
    EXPECT_GT(outcomes[0], 1000);
    EXPECT_GT(outcomes[1], 1000);
}

TEST(DeviceFuzz, RandomRequestBodiesConvertOrAreRefused) {
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
    korva::testing::LogCapture quiet;
    Random random(77);
    int relayed = 0;
    for (int iteration = 0; iteration < 600; ++iteration) {
        const std::string body = random.xmlBody();
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
            if (!out.body.empty()) {
                EXPECT_TRUE(Json::Reader().parse(out.body, parsed)) << out.body;
            }
        }
    }
    EXPECT_GT(relayed, 1200);
}

}  // namespace
}  // namespace korva::device_tests
