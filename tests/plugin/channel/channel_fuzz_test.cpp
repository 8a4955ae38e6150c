// Randomised inputs for the converters: random and mutated device answers into covertRsp,
// mutated XML bodies into covertUrlandBody. Every input must give a result code (never a crash
// or an exception), and every success must be a document that converts back.
//
// Seeds are fixed so that a failure can be replayed; iterations and time are bounded.
#include <gtest/gtest.h>
#include <json/writer.h>

#include <chrono>
#include <random>
#include <string>
#include <vector>

#include "gateway/testing/harness.h"
#include "plugin/handlers/channel_cfg.h"
#include "tests/plugin/channel/channel_test_support.h"

namespace {

using namespace channel_test;
using QXKORVAProtocol::CChannelCfg;

constexpr int kIterations = 1500;
constexpr auto kTimeBudget = std::chrono::seconds(8);

const char* const kNames[] = {"StreamingChannel",
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
                              "videoResolutionWidth",
                              "audioSamplingRate",
                              "smoothing",
                              "x"};

const char* const kTexts[] = {"",
                              "101",
                              "103",
                              "-5",
                              "true",
                              "RTSP",
                              "a&b<c>",
                              "\xff\xfe",
                              "]]>",
                              "  7",
                              "99999999999999999999"};

class Generator {
  public:
    explicit Generator(unsigned seed) : m_random(seed) {}

    int below(int n) { return static_cast<int>(m_random() % static_cast<unsigned>(n)); }

    template <typename T, size_t N>
    const T& pick(const T (&items)[N]) {
        return items[below(static_cast<int>(N))];
    }

    Json::Value value(int depth) {
        switch (below(depth > 0 ? 10 : 7)) {
            case 0:
                return Json::Value();
            case 1:
                return Json::Value(below(2) == 0);
            case 2:
                return Json::Value(below(400) - 200);
            case 3:
                return Json::Value(Json::UInt64(m_random()) << 32);
            case 4:
                return Json::Value(below(2) ? 44.1 : 1e300);
            case 5:
            case 6:
                return Json::Value(pick(kTexts));
            case 7: {
                Json::Value array(Json::arrayValue);
                for (int i = below(4); i > 0; --i) array.append(value(depth - 1));
                return array;
            }
            default: {
                Json::Value object(Json::objectValue);
                for (int i = below(5); i > 0; --i) object[pick(kNames)] = value(depth - 1);
                return object;
            }
        }
    }

    // Replaces, removes or adds one node somewhere in the tree.
    void mutate(Json::Value* root) {
        Json::Value* node = root;
        while (node->size() > 0 && below(3) != 0 && (node->isObject() || node->isArray())) {
            if (node->isArray()) {
                node =
                    &(*node)[static_cast<Json::ArrayIndex>(below(static_cast<int>(node->size())))];
            } else {
                const auto names = node->getMemberNames();
                node = &(*node)[names[below(static_cast<int>(names.size()))]];
            }
        }
        if (node->isObject() && below(2) == 0) {
            const auto names = node->getMemberNames();
            if (!names.empty() && below(2) == 0) {
                node->removeMember(names[below(static_cast<int>(names.size()))]);
            } else {
                (*node)[pick(kNames)] = value(2);
            }
            return;
        }
        *node = value(3);
    }

    std::string mutateText(std::string text) {
        static const char* const kTokens[] = {"<",
                                              ">",
                                              "</",
                                              "/>",
                                              "&amp;",
                                              "&",
                                              "<Video>",
                                              "</Transport>",
                                              "<enabled>true</enabled>",
                                              "<!--",
                                              "<![CDATA[",
                                              "\"",
                                              "<x y='1'>"};
        for (int ops = 1 + below(3); ops > 0 && !text.empty(); --ops) {
            const size_t at = m_random() % text.size();
            const size_t length = 1 + m_random() % std::min<size_t>(80, text.size() - at);
            switch (below(4)) {
                case 0:
                    text.erase(at, length);
                    break;
                case 1:
                    text.insert(m_random() % text.size(), text.substr(at, length));
                    break;
                case 2:
                    text.insert(at, pick(kTokens));
                    break;
                default:
                    text[at] = static_cast<char>(m_random() % 256);
                    break;
            }
        }
        return text;
    }

  private:
    std::mt19937 m_random;
};

const char* const kAnswerUrls[] = {"/KORVA/Streaming/channels/101", "/KORVA/Streaming/channels",
                                   "/KORVA/Streaming/channels/1/capabilities",
                                   "/KORVA/System/Audio/channels"};

// One device answer through every route: a result code, and a parseable document on success.
// Counts the answers converted by the channel route in *channelConverted.
void checkAnswer(const Json::Value& answer, const std::string& label, int* channelConverted) {
    for (const char* url : kAnswerUrls) {
        std::string xml;
        const int result = CChannelCfg().covertRsp(&xml, answer, url, 0);
        ASSERT_TRUE(result == 0 || result == 9) << label << " " << url << " gave " << result;
        if (result != 0) continue;
        ASSERT_TRUE(flatten(xml)) << label << " " << url << " wrote unparseable XML:\n" << xml;
        if (std::string(url) == kAnswerUrls[0]) {
            // What the handler writes for a client, the handler also reads back from one.
            std::string json;
            ASSERT_EQ(0, CChannelCfg::getJsonStreamingChannel(&json, xml)) << label << "\n" << xml;
            ++*channelConverted;
        }
    }
}

bool overBudget(std::chrono::steady_clock::time_point start) {
    return std::chrono::steady_clock::now() - start > kTimeBudget;
}

// Each round: a mutant of a full answer, the same mutant inside a list, and a random value.
TEST(ChannelFuzz, DeviceAnswers) {
    Generator generator(20240611);
    const Json::Value full = parseJson(fullChannelJson());
    const auto start = std::chrono::steady_clock::now();
    int converted = 0;
    for (int i = 0; i < kIterations && !overBudget(start); ++i) {
        Json::Value answer = full;
        for (int m = 1 + generator.below(3); m > 0; --m) generator.mutate(&answer);
        Json::Value list;
        list["StreamingChannelList"].append(full);
        list["StreamingChannelList"].append(answer);
        const Json::Value random = generator.value(5);
        const Json::Value* values[] = {&answer, &list, &random};
        for (const Json::Value* value : values) {
            checkAnswer(*value, "round " + std::to_string(i), &converted);
            if (HasFatalFailure()) {
                ADD_FAILURE() << Json::FastWriter().write(*value);
                return;
            }
        }
    }
    // Small mutations leave many answers convertible, so the round trip above really ran.
    EXPECT_GT(converted, 100);
}

TEST(ChannelFuzz, MutatedRequestBodies) {
    Generator generator(99);
    const std::string full = fullChannelXml();
    const auto start = std::chrono::steady_clock::now();
    int converted = 0;
    for (int i = 0; i < kIterations && !overBudget(start); ++i) {
        const std::string body = generator.mutateText(full);
        korva::testing::TestRequest request(1, "/KORVA/Streaming/channels/101", body);
        std::string jsonUrl;
        std::string json;
        const int result = CChannelCfg().covertUrlandBody(&jsonUrl, &json, request.holder(), "d");
        ASSERT_TRUE(result == 0 || result == 9) << "body " << i << ":\n" << body;
        if (result != 0) continue;
        ++converted;
        // A body the handler accepted becomes a document the handler can also answer with.
        const Json::Value sent = parseJson(json);
        std::string xml;
        ASSERT_EQ(0, CChannelCfg::getXmlStreamingChannel(&xml, sent)) << "body " << i << ":\n"
                                                                      << body;
    }
    // The mutations are small: a fair share of bodies still converts, so both paths ran.
    EXPECT_GT(converted, 10);
}

}  // namespace
