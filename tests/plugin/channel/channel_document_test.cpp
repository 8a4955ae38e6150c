// StreamingChannel documents in both directions, the list answer and the fixed answers.
#include <gtest/gtest.h>

#include <sstream>

#include "gateway/testing/harness.h"
#include "plugin/handlers/channel_cfg.h"
#include "tests/plugin/channel/channel_test_support.h"

namespace {

using namespace channel_test;
using QXKORVAProtocol::CChannelCfg;

// The full document with the first `from` after `after` replaced.
std::string replaced(const std::string& from, const std::string& to, const std::string& after = "",
                     std::string text = fullChannelXml()) {
    const size_t at = text.find(from, text.find(after));
    EXPECT_NE(at, std::string::npos) << "test document lacks " << from;
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

// The full document without the element `name` and its content.
std::string withoutBlock(const std::string& name) {
    const std::string text = fullChannelXml();
    const size_t from = text.find("<" + name + ">");
    return text.substr(0, from) + text.substr(text.find("</" + name + ">") + name.size() + 3);
}

TEST(ChannelBodyToJson, FullDocumentAndRefusedBodies) {
    std::string json;
    ASSERT_EQ(0, CChannelCfg::getJsonStreamingChannel(&json, fullChannelXml()));
    EXPECT_EQ(parseJson(fullChannelJson()), parseJson(json));
    // One compact line, members sorted, a line feed at the end.
    EXPECT_EQ(json.find('\n'), json.size() - 1);
    EXPECT_EQ(0u, json.find(R"({"StreamingChannel":{"Audio":{"audioBitRate":64,)"));

    const std::string refused[] = {
        "",
        replaced("</StreamingChannel>", "</Channel>", "",
                 replaced("<StreamingChannel version", "<Channel version")),
        replaced("<id>101</id>", ""),
        withoutBlock("Transport"),
        replaced("<streamingTransport>HTTP</streamingTransport>", ""),
        replaced("<enabled>false</enabled>", "", "<Multicast>"),
        replaced("<maxFrameRate>2500</maxFrameRate>", ""),
        replaced("<enabled>true</enabled>", "", "<SVC>"),
        replaced("<audioCompressionType>G.711ulaw</audioCompressionType>", "")};
    for (const std::string& xml : refused) {
        std::string out = "untouched";
        EXPECT_EQ(9, CChannelCfg::getJsonStreamingChannel(&out, xml)) << xml;
        EXPECT_EQ("untouched", out) << xml;
    }
}

TEST(ChannelBodyToJson, ValueRules) {
    const struct {
        std::string xml;
        MemberPath path;       // below "StreamingChannel"
        const char* expected;  // JSON text; nullptr: the member is absent
    } cases[] = {
        {replaced(">true<", ">TRUE<", "<enableCABAC>"), {"enableCABAC"}, "false"},
        {replaced(">1446<", ">  42abc<"), {"Transport", "maxPacketSize"}, "42"},
        {replaced(">1446<", "><"), {"Transport", "maxPacketSize"}, "0"},
        {replaced("<ttl>16<", "<ttl>99999999999<"),
         {"Transport", "Multicast", "ttl"},
         "2147483647"},
        {replaced(">16<", ">16.000000<", "<audioSampling"), {"Audio", "audioSamplingRate"}, "16"},
        {replaced("</Audio>", "<VoiceChanger><enabled>true</enabled></VoiceChanger></Audio>"),
         {"Audio", "VoiceChanger"},
         nullptr},
        {withoutBlock("SmartCodec"), {"Video", "SmartCodec"}, nullptr},
        {replaced("<ControlProtocolList>", "<ControlProtocolList><note>x</note>"),
         {"Transport", "ControlProtocolList"},
         R"([{"ControlProtocol":{"streamingTransport":"RTSP"}},
             {"ControlProtocol":{"streamingTransport":"HTTP"}}])"},
        {replaced("Lobby main", "A &amp; B &lt;1&gt;"), {"channelName"}, "\"A & B <1>\""},
    };
    for (const auto& c : cases) {
        std::string json;
        ASSERT_EQ(0, CChannelCfg::getJsonStreamingChannel(&json, c.xml)) << c.xml;
        Json::Value root = parseJson(json)["StreamingChannel"];
        const Json::Value& parent = at(root, MemberPath(c.path.begin(), c.path.end() - 1));
        EXPECT_EQ(c.expected ? parseJson(c.expected) : Json::Value("<absent>"),
                  parent.get(c.path.back(), "<absent>"))
            << c.path.back();
    }
}

constexpr const char* kFails = "<fails>";
constexpr const char* kAbsent = "<absent>";
constexpr const char* kPresent = "<present>";

// minimalAnswer() with one "Section/member" set to a JSON value ("~" removes it), and the text of
// that element in the answer (of its "enabled" or "level" child for an object).
TEST(ChannelAnswerToXml, ValueRules) {
    const struct {
        const char* member;
        const char* value;
        const char* text;
    } cases[] = {
        {"id", "101", kFails},
        {"enabled", "\"true\"", kFails},
        {"Transport", "[]", kFails},
        {"Transport/ControlProtocolList", R"({"ControlProtocol":{}})", kFails},
        {"Transport/ControlProtocolList", R"([{"ControlProtocol":{"streamingTransport":5}}])",
         kFails},
        {"Transport/Unicast/enabled", "\"true\"", kFails},
        {"Transport/Security", "1", kFails},
        {"Transport/maxPacketSize", "1500.0", "1500"},
        {"Transport/audioInboundPacketLength", "1.5", kAbsent},
        {"Transport/audioSourcePortNo", "2147483648", kAbsent},
        {"Transport/Security", R"({"enabled":false})", "false"},
        // smoothing is written only from 1 to 100.
        {"Video/smoothing", "0", kAbsent},
        {"Video/smoothing", "1", "1"},
        {"Video/smoothing", "100", "100"},
        {"Video/smoothing", "101", kAbsent},
        {"Video/mirrorEnabled", "\"true\"", kAbsent},
        {"Video/keyFrameInterval", "-2147483648", "-2147483648"},
        {"Video/fixedQuality", "60.0", "60"},
        {"Video/fixedQuality", "60.5", kAbsent},
        {"Video/constantBitRate", "4096", kAbsent},  // never goes back to a client
        {"Video/videoResolutionWidth", "\"1920\"", kFails},
        {"Video/maxFrameRate", "~", kFails},
        {"Video/maxFrameRate", "4294967295", kFails},
        // videoCodecType: any scalar is written as its text; containers fail.
        {"Video/videoCodecType", "5", "5"},
        {"Video/videoCodecType", "null", ""},
        {"Video/videoCodecType", R"(["H.264"])", kFails},
        {"Video/SVC", R"({"enabled":true,"SVCMode":3})", "true"},
        {"Video/SVC", R"({"enabled":"true"})", kFails},
        {"Video/SmartCodec", "null", kFails},
        {"Video", "[]", kFails},
        {"Video", "~", kAbsent},
        {"Audio/audioSamplingRate", "44.1", "44.100000"},
        {"Audio/audioSamplingRate", "\"16\"", kAbsent},
        {"Audio/audioSamplingRate", "1e300", kPresent},
        // VoiceChanger level: an integer from -12 to 12.
        {"Audio/VoiceChanger", R"({"enabled":true,"level":13})", kFails},
        {"Audio/VoiceChanger", R"({"enabled":true,"level":-12})", "-12"},
        {"Audio/VoiceChanger", R"({"enabled":true,"level":12})", "12"},
        {"Audio/VoiceChanger", R"({"enabled":true,"level":"3"})", kFails},
        {"Audio", "[{}]", kFails},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.member) + " = " + c.value);
        MemberPath path = {"StreamingChannel"};
        std::string where = "/StreamingChannel/" + std::string(c.member);
        std::istringstream parts(c.member);
        for (std::string part; std::getline(parts, part, '/');) path.push_back(part);
        const bool erase = std::string(c.value) == "~";
        const Json::Value value = erase ? Json::Value() : parseJson(c.value);
        const Json::Value answer =
            erase ? withoutMember(minimalAnswer(), path) : withMember(minimalAnswer(), path, value);
        std::string xml = "untouched";
        const int result = CChannelCfg::getXmlStreamingChannel(&xml, answer);
        if (c.text == kFails) {
            EXPECT_EQ(9, result);
            EXPECT_EQ("untouched", xml);
            continue;
        }
        ASSERT_EQ(0, result);
        if (value.isObject()) where += value.isMember("level") ? "/level" : "/enabled";
        const auto text = textAt(xml, where);
        if (c.text == kAbsent) {
            EXPECT_FALSE(text) << where;
        } else if (c.text == kPresent) {
            EXPECT_TRUE(text) << where;
        } else {
            EXPECT_EQ(c.text, text.value_or(kAbsent)) << where;
        }
    }
    for (const char* root : {"null", R"({"Channel":{}})", R"({"StreamingChannel":[{}]})"}) {
        std::string xml = "untouched";
        EXPECT_EQ(9, CChannelCfg::getXmlStreamingChannel(&xml, parseJson(root))) << root;
        EXPECT_EQ("untouched", xml) << root;
    }
    std::string xml = "untouched";
    EXPECT_EQ(9, CChannelCfg::getXmlStreamingChannel(
                     &xml, withMember(minimalAnswer(), {"StreamingChannel", "channelName"},
                                      std::string(102400, 'n'))))
        << "a document beyond the answer buffer";
    EXPECT_EQ("untouched", xml);
}

// The Transport entries of an answer, paths relative to Transport.
XmlEntries transportOf(const std::string& xml) {
    XmlEntries entries;
    for (const auto& [path, text] : entriesOf(xml)) {
        if (path.starts_with("/StreamingChannel/Transport/")) {
            entries.emplace_back(path.substr(28), text);
        }
    }
    return entries;
}

TEST(ChannelAnswerToXml, DefaultTransportSections) {
    std::string xml;
    ASSERT_EQ(0, CChannelCfg::getXmlStreamingChannel(
                     &xml, withMember(minimalAnswer(), {"StreamingChannel", "Transport"}, {})));
    XmlEntries expected = {{"ControlProtocolList", ""},
                           {"ControlProtocolList/ControlProtocol", ""},
                           {"ControlProtocolList/ControlProtocol/streamingTransport", "RTSP"},
                           {"Multicast", ""},
                           {"Multicast/enabled", "true"},
                           {"Multicast/destIPAddress", "0.0.0.0"},
                           {"Multicast/videoDestPortNo", "0"},
                           {"Multicast/audioDestPortNo", "0"}};
    EXPECT_EQ(expected, transportOf(xml)) << "a null Transport gives the default section";

    ASSERT_EQ(0, CChannelCfg::getXmlStreamingChannel(
                     &xml, withMember(minimalAnswer(), {"StreamingChannel", "Transport", "Unicast"},
                                      parseJson(R"({"enabled":true,"interfaceID":5})"))));
    expected.insert(expected.begin() + 3, {{"Unicast", ""}, {"Unicast/enabled", "true"}});
    EXPECT_EQ(expected, transportOf(xml)) << "a numeric interfaceID is left out";
}

// Only constantBitRate and audioInboundPortNo are not written back; the sampling rate is written
// with six decimals.
TEST(ChannelRoundTrip, BothDirectionsKeepEveryReturningField) {
    std::string json;
    ASSERT_EQ(0, CChannelCfg::getJsonStreamingChannel(&json, fullChannelXml()));
    std::string xml;
    ASSERT_EQ(0, CChannelCfg::getXmlStreamingChannel(&xml, parseJson(json)));
    XmlEntries expected;
    for (auto entry : entriesOf(fullChannelXml())) {
        if (entry.first.ends_with("/audioSamplingRate")) entry.second = "16.000000";
        if (!entry.first.ends_with("/constantBitRate") &&
            !entry.first.ends_with("/audioInboundPortNo")) {
            expected.push_back(entry);
        }
    }
    EXPECT_EQ(expected, entriesOf(xml));
    EXPECT_EQ(0u, xml.find("<StreamingChannel>")) << "answers carry no declaration";

    const Json::Value answer =
        withoutMember(withoutMember(parseJson(fullChannelJson()),
                                    {"StreamingChannel", "Video", "constantBitRate"}),
                      {"StreamingChannel", "Transport", "audioInboundPortNo"});
    ASSERT_EQ(0, CChannelCfg::getJsonStreamingChannel(&json, xml));
    EXPECT_EQ(answer, parseJson(json));
}

TEST(ChannelList, FirstTwoStreamsOfEachChannelUntilAFailingElement) {
    const auto listOf = [](std::initializer_list<Json::Value> ids) {
        Json::Value root;
        Json::Value& list = root["StreamingChannelList"] = Json::Value(Json::arrayValue);
        for (const Json::Value& id : ids) {
            list.append(withMember(minimalAnswer(), {"StreamingChannel", "id"}, id));
        }
        return root;
    };
    const auto idsOf = [](const std::string& xml) {
        std::string ids;
        for (const auto& [path, text] : entriesOf(xml)) {
            if (path == "/StreamingChannelList/StreamingChannel/id") ids += text + " ";
        }
        return ids;
    };
    std::string xml;
    ASSERT_EQ(0, CChannelCfg::getXmlStreamingChannelList(
                     &xml, listOf({"101", "102", "103", "201", "202", "1199"})));
    EXPECT_EQ("101 102 201 202 ", idsOf(xml));
    EXPECT_EQ(0u, xml.find("<StreamingChannelList>\r\n<StreamingChannel>"));
    EXPECT_TRUE(xml.ends_with("</StreamingChannel>\n</StreamingChannelList>"));

    korva::testing::LogCapture log;
    Json::Value broken = listOf({"101", "102"});
    broken["StreamingChannelList"].append("201");  // not an object
    broken["StreamingChannelList"].append(listOf({"202"})["StreamingChannelList"][0]);
    ASSERT_EQ(0, CChannelCfg::getXmlStreamingChannelList(&xml, broken));
    EXPECT_EQ("101 102 ", idsOf(xml));
    EXPECT_TRUE(log.contains("get xml streamingchannel[2] fail", 5));

    ASSERT_EQ(0, CChannelCfg::getXmlStreamingChannelList(&xml, listOf({})));
    EXPECT_EQ("<StreamingChannelList>\r\n</StreamingChannelList>", xml);
    for (const char* answer : {"{}", R"({"StreamingChannelList":{}})", R"([{"A":[]}])"}) {
        std::string out = "untouched";
        EXPECT_EQ(9, CChannelCfg::getXmlStreamingChannelList(&out, parseJson(answer))) << answer;
        EXPECT_EQ("untouched", out) << answer;
    }
}

// The capability document is fixed: only its presence depends on the device's answer.
TEST(ChannelCapabilities, FixedDocumentByteForByte) {
    std::string first;
    std::string second = "untouched";
    ASSERT_EQ(0, CChannelCfg::covertChannelIDCapRspBody(
                     &first, parseJson(R"({"StreamingChannel":{"Video":{"maxFrameRate":1}}})"), 0));
    EXPECT_EQ(R"(<StreamingChannel>
  <Video>
    <videoCodecType opt="H.264,H.265" />
    <videoResolutionWidth opt="1920,1280,704" />
    <videoResolutionHeight opt="1280,720,576" />
    <videoQualityControlType opt="CBR,VBR" />
    <constantBitRate min="512" max="8192" />
    <fixedQuality opt="1,20,40,60,80,100" />
    <maxFrameRate opt="3000,2500,2200,2000,1800,1600,1500,1200,1000,800,600,5000,400,200,100,50,25,12,6" />
    <keyFrameInterval min="1" max="400" />
  </Video>
</StreamingChannel>
)",
              first);
    ASSERT_EQ(0, CChannelCfg::getXmlChannelCapabilities(
                     &second, parseJson(R"({"StreamingChannel":[1,2,3],"other":true})")));
    EXPECT_EQ(first, second);

    korva::testing::LogCapture log(1);
    for (const char* answer : {"{}", "[]", R"({"Video":{}})"}) {
        std::string xml = "untouched";
        EXPECT_EQ(9, CChannelCfg::covertChannelIDCapRspBody(&xml, parseJson(answer), 0)) << answer;
        EXPECT_EQ("untouched", xml) << answer;
    }
    EXPECT_TRUE(log.contains("/KORVA/Streaming/channels/<id>/capabilities rep={\"Video\":{}}", 2));
    EXPECT_EQ(-1, CChannelCfg::covertChannelIDCapRspBody(&second, {}, 1)) << "PUT is not answered";
}

TEST(ChannelAudioList, OneAudioChannelPerVideoInput) {
    const std::pair<const char*, int> cases[] = {
        // answer, channels (-1: refused)
        {"null", 1},
        {R"({"VideoInputChannelList":[{"id":"1"},{"id":"2"},7]})", 3},
        {R"({"VideoInputChannelList":null})", 0},
        {"{}", -1},
        {"[]", -1}};
    for (const auto& [answer, channels] : cases) {
        SCOPED_TRACE(answer);
        std::string xml = "untouched";
        const int result = CChannelCfg::getXmlAudioChannelList(&xml, parseJson(answer));
        if (channels < 0) {
            EXPECT_EQ(9, result);
            EXPECT_EQ("untouched", xml);
            continue;
        }
        ASSERT_EQ(0, result);
        EXPECT_EQ(0u, xml.find("<?xml version=\"1.0\" encoding=\"UTF-8\"?>"));
        XmlEntries expected = {{"/AudioChannelList", ""}};
        for (int id = 1; id <= channels; ++id) {
            expected.push_back({"/AudioChannelList/AudioChannel", ""});
            expected.push_back({"/AudioChannelList/AudioChannel/id", std::to_string(id)});
            expected.push_back({"/AudioChannelList/AudioChannel/enabled", "true"});
        }
        EXPECT_EQ(expected, entriesOf(xml));
    }
}

}  // namespace
