// StreamingChannel documents: XML body -> gateway JSON, device JSON -> XML answer, the list
// answer, and the round trip of a full document.
#include <gtest/gtest.h>

#include <string>

#include "gateway/testing/harness.h"
#include "plugin/handlers/channel_cfg.h"
#include "tests/plugin/channel/channel_test_support.h"

namespace {

using namespace channel_test;
using QXKORVAProtocol::CChannelCfg;

std::string replaced(std::string text, const std::string& from, const std::string& to,
                     const std::string& after = "") {
    const size_t at = text.find(from, text.find(after));
    EXPECT_NE(at, std::string::npos) << "test document lacks " << from;
    if (at != std::string::npos) text.replace(at, from.size(), to);
    return text;
}

// The document without the first `element` that follows `after`.
std::string without(const std::string& element, const std::string& after = "") {
    return replaced(fullChannelXml(), element, "", after);
}

// The document without the element `name` and its content.
std::string withoutBlock(const std::string& name) {
    const std::string text = fullChannelXml();
    const size_t from = text.find("<" + name + ">");
    const size_t to = text.find("</" + name + ">") + name.size() + 3;
    return text.substr(0, from) + text.substr(to);
}

// ---- XML body to gateway JSON --------------------------------------------------------------

TEST(ChannelBodyToJson, FullDocumentCarriesEveryElement) {
    std::string json;
    ASSERT_EQ(0, CChannelCfg::getJsonStreamingChannel(&json, fullChannelXml()));
    EXPECT_EQ(parseJson(fullChannelJson()), parseJson(json));
    // One compact line, members sorted, a line feed at the end.
    EXPECT_EQ(json.find('\n'), json.size() - 1);
    EXPECT_EQ(0u, json.find(R"({"StreamingChannel":{"Audio":{"audioBitRate":64,)"));
}

TEST(ChannelBodyToJson, RefusesBodiesWithoutRequiredContent) {
    const std::string full = fullChannelXml();
    const struct {
        const char* name;
        std::string xml;
    } cases[] = {
        {"empty body", ""},
        {"not XML", "StreamingChannel"},
        {"other root", replaced(replaced(full, "<StreamingChannel version", "<Channel version"),
                                "</StreamingChannel>", "</Channel>")},
        {"id", without("<id>101</id>")},
        {"enabled", without("<enabled>true</enabled>", "</channelName>")},
        {"Transport", withoutBlock("Transport")},
        {"ControlProtocolList", withoutBlock("ControlProtocolList")},
        {"streamingTransport", without("<streamingTransport>HTTP</streamingTransport>")},
        {"Multicast enabled", without("<enabled>false</enabled>", "<Multicast>")},
        {"Video enabled", without("<enabled>true</enabled>", "<Video>")},
        {"videoCodecType", without("<videoCodecType>H.265</videoCodecType>")},
        {"videoResolutionHeight", without("<videoResolutionHeight>1080</videoResolutionHeight>")},
        {"maxFrameRate", without("<maxFrameRate>2500</maxFrameRate>")},
        {"SVC enabled", without("<enabled>true</enabled>", "<SVC>")},
        {"audioCompressionType", without("<audioCompressionType>G.711ulaw</audioCompressionType>")},
    };
    for (const auto& c : cases) {
        std::string json = "untouched";
        EXPECT_EQ(9, CChannelCfg::getJsonStreamingChannel(&json, c.xml)) << c.name;
        EXPECT_EQ("untouched", json) << c.name;
    }
}

TEST(ChannelBodyToJson, ValueRules) {
    const std::string full = fullChannelXml();
    const struct {
        const char* name;
        std::string xml;
        MemberPath path;
        const char* expected;  // JSON text; nullptr: the member is absent
    } cases[] = {
        {"only the exact text true is true",
         replaced(full, ">true<", ">TRUE<", "<enableCABAC>"),
         {"enableCABAC"},
         "false"},
        {"integer with trailing text",
         replaced(full, ">1446<", ">  42abc<"),
         {"Transport", "maxPacketSize"},
         "42"},
        {"integer without digits",
         replaced(full, ">1446<", "><"),
         {"Transport", "maxPacketSize"},
         "0"},
        {"negative integer",
         replaced(full, "<ttl>16<", "<ttl>-7<"),
         {"Transport", "Multicast", "ttl"},
         "-7"},
        {"integer beyond 32 bits",
         replaced(full, "<ttl>16<", "<ttl>99999999999<"),
         {"Transport", "Multicast", "ttl"},
         "2147483647"},
        {"sampling rate with decimals",
         replaced(full, ">16<", ">16.000000<", "<audioSampling"),
         {"Audio", "audioSamplingRate"},
         "16"},
        {"VoiceChanger is not read",
         replaced(full, "</Audio>", "<VoiceChanger><enabled>true</enabled></VoiceChanger></Audio>"),
         {"Audio", "VoiceChanger"},
         nullptr},
        {"no Video", withoutBlock("Video"), {"Video"}, nullptr},
        {"no Audio", withoutBlock("Audio"), {"Audio"}, nullptr},
        {"no SVC", withoutBlock("SVC"), {"Video", "SVC"}, nullptr},
        {"no SmartCodec", withoutBlock("SmartCodec"), {"Video", "SmartCodec"}, nullptr},
        {"empty protocol list",
         replaced(withoutBlock("ControlProtocolList"), "<Unicast>",
                  "<ControlProtocolList/><Unicast>"),
         {"Transport", "ControlProtocolList"},
         "[]"},
        {"other children of the protocol list are skipped",
         replaced(full, "<ControlProtocolList>", "<ControlProtocolList><note>x</note>"),
         {"Transport", "ControlProtocolList"},
         R"([{"ControlProtocol":{"streamingTransport":"RTSP"}},
             {"ControlProtocol":{"streamingTransport":"HTTP"}}])"},
        {"escaped text",
         replaced(full, "Lobby main", "A &amp; B &lt;1&gt;"),
         {"channelName"},
         "\"A & B <1>\""},
    };
    for (const auto& c : cases) {
        std::string json;
        ASSERT_EQ(0, CChannelCfg::getJsonStreamingChannel(&json, c.xml)) << c.name;
        MemberPath path = c.path;
        path.insert(path.begin(), "StreamingChannel");
        Json::Value root = parseJson(json);
        const Json::Value& container = at(root, MemberPath(path.begin(), path.end() - 1));
        if (c.expected == nullptr) {
            EXPECT_FALSE(container.isMember(path.back())) << c.name;
        } else {
            EXPECT_EQ(parseJson(c.expected), container.get(path.back(), "<absent>")) << c.name;
        }
    }
}

// ---- Device JSON to XML answer ---------------------------------------------------------------

// minimalAnswer() with the member at path (below "StreamingChannel") set, or removed.
Json::Value edited(MemberPath path, const Json::Value& value) {
    path.insert(path.begin(), "StreamingChannel");
    return withMember(minimalAnswer(), path, value);
}

Json::Value erased(MemberPath path) {
    path.insert(path.begin(), "StreamingChannel");
    return withoutMember(minimalAnswer(), path);
}

TEST(ChannelAnswerToXml, RefusesAnswersOfTheWrongShape) {
    const MemberPath protocols = {"Transport", "ControlProtocolList"};
    const struct {
        const char* name;
        Json::Value answer;
    } cases[] = {
        {"null", Json::Value()},
        {"array root", parseJson("[1,2]")},
        {"string root", Json::Value("StreamingChannel")},
        {"no StreamingChannel", parseJson(R"({"Channel":{}})")},
        {"StreamingChannel array", parseJson(R"({"StreamingChannel":[{}]})")},
        {"StreamingChannel number", parseJson(R"({"StreamingChannel":101})")},
        {"id is a number", edited({"id"}, 101)},
        {"channelName null", edited({"channelName"}, Json::Value())},
        {"enabled is text", edited({"enabled"}, "true")},
        {"Transport missing", erased({"Transport"})},
        {"Transport array", edited({"Transport"}, parseJson("[]"))},
        {"Transport string", edited({"Transport"}, "RTSP")},
        {"ControlProtocolList missing", erased(protocols)},
        {"ControlProtocolList object",
         edited(protocols, parseJson(R"({"ControlProtocol":{"streamingTransport":"RTSP"}})"))},
        {"protocol entry string", edited(protocols, parseJson(R"(["RTSP"])"))},
        {"ControlProtocol array", edited(protocols, parseJson(R"([{"ControlProtocol":["x"]}])"))},
        {"streamingTransport number",
         edited(protocols, parseJson(R"([{"ControlProtocol":{"streamingTransport":554}}])"))},
        {"Unicast null", edited({"Transport", "Unicast"}, Json::Value())},
        {"Unicast enabled text", edited({"Transport", "Unicast", "enabled"}, "true")},
        {"Multicast string", edited({"Transport", "Multicast"}, "239.0.0.1")},
        {"Security number", edited({"Transport", "Security"}, 1)},
        {"document beyond the answer buffer", edited({"channelName"}, std::string(102400, 'n'))},
    };
    for (const auto& c : cases) {
        std::string xml = "untouched";
        EXPECT_EQ(9, CChannelCfg::getXmlStreamingChannel(&xml, c.answer)) << c.name;
        EXPECT_EQ("untouched", xml) << c.name;
    }
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

TEST(ChannelAnswerToXml, NullTransportGivesTheDefaultSection) {
    std::string xml;
    ASSERT_EQ(0, CChannelCfg::getXmlStreamingChannel(&xml, edited({"Transport"}, Json::Value())));
    const XmlEntries expected = {
        {"ControlProtocolList", ""},
        {"ControlProtocolList/ControlProtocol", ""},
        {"ControlProtocolList/ControlProtocol/streamingTransport", "RTSP"},
        {"Multicast", ""},
        {"Multicast/enabled", "true"},
        {"Multicast/destIPAddress", "0.0.0.0"},
        {"Multicast/videoDestPortNo", "0"},
        {"Multicast/audioDestPortNo", "0"},
    };
    EXPECT_EQ(expected, transportOf(xml));
}

TEST(ChannelAnswerToXml, TransportValueRules) {
    const Json::Value answer = edited({"Transport"}, parseJson(R"({
        "maxPacketSize":1500.0, "audioPacketLength":"1500", "audioInboundPacketLength":1.5,
        "audioInboundPortNo":5000, "videoSourcePortNo":-1, "audioSourcePortNo":2147483648,
        "ControlProtocolList":[],
        "Unicast":{"enabled":true,"interfaceID":5,"rtpTransportType":"RTP/UDP"},
        "Security":{"enabled":false}})"));
    std::string xml;
    ASSERT_EQ(0, CChannelCfg::getXmlStreamingChannel(&xml, answer));
    const XmlEntries expected = {
        {"maxPacketSize", "1500"},
        {"videoSourcePortNo", "-1"},
        {"ControlProtocolList", ""},
        {"Unicast", ""},
        {"Unicast/enabled", "true"},
        {"Unicast/rtpTransportType", "RTP/UDP"},
        // No Multicast from the device: the default one stands between Unicast and Security.
        {"Multicast", ""},
        {"Multicast/enabled", "true"},
        {"Multicast/destIPAddress", "0.0.0.0"},
        {"Multicast/videoDestPortNo", "0"},
        {"Multicast/audioDestPortNo", "0"},
        {"Security", ""},
        {"Security/enabled", "false"},
    };
    EXPECT_EQ(expected, transportOf(xml));
}

// ---- Round trips -----------------------------------------------------------------------------

// What comes back from the device in XML differs from what went out only where the directions
// differ: constantBitRate and audioInboundPortNo are not written back, and the sampling rate
// comes back with six decimals.
TEST(ChannelRoundTrip, XmlToJsonToXmlKeepsEveryReturningField) {
    std::string json;
    ASSERT_EQ(0, CChannelCfg::getJsonStreamingChannel(&json, fullChannelXml()));
    std::string xml;
    ASSERT_EQ(0, CChannelCfg::getXmlStreamingChannel(&xml, parseJson(json)));

    XmlEntries expected;
    for (auto entry : entriesOf(fullChannelXml())) {
        if (entry.first.ends_with("/constantBitRate") ||
            entry.first.ends_with("/audioInboundPortNo")) {
            continue;
        }
        if (entry.first.ends_with("/audioSamplingRate")) entry.second = "16.000000";
        expected.push_back(entry);
    }
    EXPECT_EQ(expected, entriesOf(xml));
    EXPECT_EQ(0u, xml.find("<StreamingChannel>")) << "answers carry no declaration";

    std::string again;
    ASSERT_EQ(0, CChannelCfg::getJsonStreamingChannel(&again, xml));
    Json::Value reference = parseJson(fullChannelJson());
    reference = withoutMember(reference, {"StreamingChannel", "Video", "constantBitRate"});
    reference = withoutMember(reference, {"StreamingChannel", "Transport", "audioInboundPortNo"});
    EXPECT_EQ(reference, parseJson(again));
}

TEST(ChannelRoundTrip, JsonToXmlToJsonKeepsEveryReturningField) {
    Json::Value answer = parseJson(fullChannelJson());
    answer = withoutMember(answer, {"StreamingChannel", "Video", "constantBitRate"});
    answer = withoutMember(answer, {"StreamingChannel", "Transport", "audioInboundPortNo"});
    at(answer, {"StreamingChannel", "Audio", "audioSamplingRate"}) = 44.1;
    at(answer, {"StreamingChannel", "Audio", "VoiceChanger"}) =
        parseJson(R"({"enabled":true,"level":-3})");

    std::string xml;
    ASSERT_EQ(0, CChannelCfg::getXmlStreamingChannel(&xml, answer));
    EXPECT_EQ("-3", textAt(xml, "/StreamingChannel/Audio/VoiceChanger/level"));
    std::string json;
    ASSERT_EQ(0, CChannelCfg::getJsonStreamingChannel(&json, xml));

    Json::Value expected = withoutMember(answer, {"StreamingChannel", "Audio", "VoiceChanger"});
    at(expected, {"StreamingChannel", "Audio", "audioSamplingRate"}) = 44;
    EXPECT_EQ(expected, parseJson(json));
}

// ---- The list answer -------------------------------------------------------------------------

Json::Value listOf(const std::vector<Json::Value>& ids) {
    Json::Value root;
    Json::Value& list = root["StreamingChannelList"] = Json::Value(Json::arrayValue);
    for (const Json::Value& id : ids) {
        list.append(withMember(minimalAnswer(), {"StreamingChannel", "id"}, id));
    }
    return root;
}

std::vector<std::string> listedIds(const std::string& xml) {
    std::vector<std::string> ids;
    for (const auto& [path, text] : flatten(xml).value_or(XmlEntries{})) {
        if (path == "/StreamingChannelList/StreamingChannel/id") ids.push_back(text);
    }
    return ids;
}

TEST(ChannelList, ListsTheFirstTwoStreamsOfEachChannel) {
    std::string xml;
    ASSERT_EQ(0, CChannelCfg::getXmlStreamingChannelList(
                     &xml, listOf({"101", "102", "103", "201", "202", "1199"})));
    EXPECT_EQ((std::vector<std::string>{"101", "102", "201", "202"}), listedIds(xml));
    EXPECT_EQ(0u, xml.find("<StreamingChannelList>\r\n<StreamingChannel>"));
    EXPECT_TRUE(xml.ends_with("</StreamingChannel>\n</StreamingChannelList>"));
}

TEST(ChannelList, AFailingElementEndsTheListEarly) {
    korva::testing::LogCapture log;
    Json::Value root = listOf({"101", "102"});
    root["StreamingChannelList"].append("201");  // not an object
    root["StreamingChannelList"].append(listOf({"202"})["StreamingChannelList"][0]);
    std::string xml;
    ASSERT_EQ(0, CChannelCfg::getXmlStreamingChannelList(&xml, root));
    EXPECT_EQ((std::vector<std::string>{"101", "102"}), listedIds(xml));
    EXPECT_TRUE(log.contains("get xml streamingchannel[2] fail", 5));
}

TEST(ChannelList, EmptyAndMalformedLists) {
    std::string xml;
    ASSERT_EQ(0, CChannelCfg::getXmlStreamingChannelList(&xml, listOf({})));
    EXPECT_EQ("<StreamingChannelList>\r\n</StreamingChannelList>", xml);

    for (const char* answer : {R"({})", R"({"StreamingChannelList":null})",
                               R"({"StreamingChannelList":{}})", R"({"StreamingChannelList":"x"})",
                               R"([{"StreamingChannelList":[]}])", R"("StreamingChannelList")"}) {
        std::string out = "untouched";
        EXPECT_EQ(9, CChannelCfg::getXmlStreamingChannelList(&out, parseJson(answer))) << answer;
        EXPECT_EQ("untouched", out) << answer;
    }
}

}  // namespace
