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

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    const size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << "test document lacks " << from;
    if (at != std::string::npos) text.replace(at, from.size(), to);
    return text;
}

std::string without(const std::string& text, const std::string& part) {
    return replaced(text, part, "");
}

// text without `part` where it stands right before `context` (to pick one of several equal
// elements).
std::string withoutBefore(const std::string& text, const std::string& part,
                          const std::string& context) {
    return replaced(text, part + context, context);
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
        {"unclosed root", "<StreamingChannel><id>1</id>"},
        {"other root", replaced(replaced(full, "<StreamingChannel version=\"2.0\">", "<Channel>"),
                                "</StreamingChannel>", "</Channel>")},
        {"id", without(full, "<id>101</id>")},
        {"channelName", without(full, "<channelName>Lobby main</channelName>")},
        {"enabled", withoutBefore(full, "<enabled>true</enabled>", "\n  <Transport>")},
        {"ControlProtocolList",
         without(full,
                 "<ControlProtocolList>\n"
                 "      <ControlProtocol><streamingTransport>RTSP</streamingTransport>"
                 "</ControlProtocol>\n"
                 "      <ControlProtocol><streamingTransport>HTTP</streamingTransport>"
                 "</ControlProtocol>\n"
                 "    </ControlProtocolList>")},
        {"streamingTransport", without(full, "<streamingTransport>HTTP</streamingTransport>")},
        {"Unicast enabled",
         withoutBefore(full, "<enabled>true</enabled>", "\n      <interfaceID>")},
        {"Multicast enabled",
         withoutBefore(full, "<enabled>false</enabled>", "\n      <userTriggerThreshold>")},
        {"Security enabled",
         withoutBefore(full, "<enabled>true</enabled>", "\n      <certificateType>")},
        {"Video enabled",
         withoutBefore(full, "<enabled>true</enabled>", "\n    <videoInputChannelID>")},
        {"videoInputChannelID", without(full, "<videoInputChannelID>1</videoInputChannelID>")},
        {"videoCodecType", without(full, "<videoCodecType>H.265</videoCodecType>")},
        {"videoResolutionWidth",
         without(full, "<videoResolutionWidth>1920</videoResolutionWidth>")},
        {"videoResolutionHeight",
         without(full, "<videoResolutionHeight>1080</videoResolutionHeight>")},
        {"maxFrameRate", without(full, "<maxFrameRate>2500</maxFrameRate>")},
        {"SVC enabled", withoutBefore(full, "<enabled>true</enabled>", "\n      <SVCMode>")},
        {"SmartCodec enabled",
         replaced(full, "<SmartCodec>\n      <enabled>false</enabled>", "<SmartCodec>")},
        {"Audio enabled",
         withoutBefore(full, "<enabled>true</enabled>", "\n    <audioInputChannelID>")},
        {"audioInputChannelID", without(full, "<audioInputChannelID>1</audioInputChannelID>")},
        {"audioCompressionType",
         without(full, "<audioCompressionType>G.711ulaw</audioCompressionType>")},
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
         replaced(full, "<enableCABAC>true", "<enableCABAC>TRUE"),
         {"enableCABAC"},
         "false"},
        {"enabled yes",
         replaced(full, "<enabled>true</enabled>\n  <Transport>",
                  "<enabled>yes</enabled>\n  <Transport>"),
         {"enabled"},
         "false"},
        {"integer with trailing text",
         replaced(full, "<maxPacketSize>1446<", "<maxPacketSize>  42abc<"),
         {"Transport", "maxPacketSize"},
         "42"},
        {"integer without digits",
         replaced(full, "<maxPacketSize>1446<", "<maxPacketSize>abc<"),
         {"Transport", "maxPacketSize"},
         "0"},
        {"empty integer",
         replaced(full, "<maxPacketSize>1446<", "<maxPacketSize><"),
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
         replaced(full, "<audioSamplingRate>16<", "<audioSamplingRate>16.000000<"),
         {"Audio", "audioSamplingRate"},
         "16"},
        {"constant bit rate goes to the device", full, {"Video", "constantBitRate"}, "4096"},
        {"VoiceChanger is not read",
         replaced(full, "</Audio>",
                  "<VoiceChanger><enabled>true</enabled><level>3</level></VoiceChanger></Audio>"),
         {"Audio", "VoiceChanger"},
         nullptr},
        {"no Video",
         without(full, full.substr(full.find("<Video>"),
                                   full.find("</Video>") + 8 - full.find("<Video>"))),
         {"Video"},
         nullptr},
        {"no Audio",
         without(full, full.substr(full.find("<Audio>"),
                                   full.find("</Audio>") + 8 - full.find("<Audio>"))),
         {"Audio"},
         nullptr},
        {"no SVC",
         without(full,
                 "<SVC>\n      <enabled>true</enabled>\n      <SVCMode>auto</SVCMode>\n    </SVC>"),
         {"Video", "SVC"},
         nullptr},
        {"no SmartCodec",
         without(full, "<SmartCodec>\n      <enabled>false</enabled>\n    </SmartCodec>"),
         {"Video", "SmartCodec"},
         nullptr},
        {"no Unicast",
         without(full, full.substr(full.find("<Unicast>"),
                                   full.find("</Unicast>") + 10 - full.find("<Unicast>"))),
         {"Transport", "Unicast"},
         nullptr},
        {"empty protocol list",
         replaced(full,
                  full.substr(full.find("<ControlProtocolList>"),
                              full.find("</ControlProtocolList>") + 22 -
                                  full.find("<ControlProtocolList>")),
                  "<ControlProtocolList/>"),
         {"Transport", "ControlProtocolList"},
         "[]"},
        {"other children of the protocol list are skipped",
         replaced(full, "<ControlProtocolList>", "<ControlProtocolList><note>x</note>"),
         {"Transport", "ControlProtocolList"},
         R"([{"ControlProtocol":{"streamingTransport":"RTSP"}},
             {"ControlProtocol":{"streamingTransport":"HTTP"}}])"},
        {"special characters in text",
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
        const MemberPath parent(path.begin(), path.end() - 1);
        const Json::Value& container = at(root, parent);
        if (c.expected == nullptr) {
            EXPECT_FALSE(container.isMember(path.back())) << c.name;
        } else {
            ASSERT_TRUE(container.isMember(path.back())) << c.name;
            EXPECT_EQ(parseJson(c.expected), container[path.back()]) << c.name;
        }
    }
}

// ---- Device JSON to XML answer ---------------------------------------------------------------

TEST(ChannelAnswerToXml, RefusesAnswersOfTheWrongShape) {
    const Json::Value base = minimalAnswer();
    const MemberPath sc = {"StreamingChannel"};
    const MemberPath transport = {"StreamingChannel", "Transport"};
    const MemberPath protocols = {"StreamingChannel", "Transport", "ControlProtocolList"};
    const struct {
        const char* name;
        Json::Value answer;
    } cases[] = {
        {"null", Json::Value()},
        {"array root", parseJson("[1,2]")},
        {"string root", Json::Value("StreamingChannel")},
        {"no StreamingChannel", parseJson(R"({"Channel":{}})")},
        {"StreamingChannel array", withMember(base, sc, parseJson("[{}]"))},
        {"StreamingChannel string", withMember(base, sc, "x")},
        {"StreamingChannel number", withMember(base, sc, 101)},
        {"id is a number", withMember(base, {"StreamingChannel", "id"}, 101)},
        {"id missing", withoutMember(base, {"StreamingChannel", "id"})},
        {"channelName null", withMember(base, {"StreamingChannel", "channelName"}, Json::Value())},
        {"enabled is text", withMember(base, {"StreamingChannel", "enabled"}, "true")},
        {"Transport missing", withoutMember(base, transport)},
        {"Transport array", withMember(base, transport, parseJson("[]"))},
        {"Transport string", withMember(base, transport, "RTSP")},
        {"Transport boolean", withMember(base, transport, true)},
        {"ControlProtocolList missing", withoutMember(base, protocols)},
        {"ControlProtocolList object",
         withMember(base, protocols,
                    parseJson(R"({"ControlProtocol":{"streamingTransport":"RTSP"}})"))},
        {"ControlProtocolList string", withMember(base, protocols, "RTSP")},
        {"protocol entry string", withMember(base, protocols, parseJson(R"(["RTSP"])"))},
        {"ControlProtocol array",
         withMember(base, protocols, parseJson(R"([{"ControlProtocol":["RTSP"]}])"))},
        {"streamingTransport number",
         withMember(base, protocols,
                    parseJson(R"([{"ControlProtocol":{"streamingTransport":554}}])"))},
        {"Unicast null",
         withMember(base, {"StreamingChannel", "Transport", "Unicast"}, Json::Value())},
        {"Unicast array",
         withMember(base, {"StreamingChannel", "Transport", "Unicast"}, parseJson("[true]"))},
        {"Unicast enabled text",
         withMember(base, {"StreamingChannel", "Transport", "Unicast", "enabled"}, "true")},
        {"Multicast string",
         withMember(base, {"StreamingChannel", "Transport", "Multicast"}, "239.0.0.1")},
        {"Multicast without enabled",
         withMember(base, {"StreamingChannel", "Transport", "Multicast"},
                    parseJson(R"({"ttl":1})"))},
        {"Security number", withMember(base, {"StreamingChannel", "Transport", "Security"}, 1)},
        {"document beyond the answer buffer",
         withMember(base, {"StreamingChannel", "channelName"}, std::string(102400, 'n'))},
    };
    for (const auto& c : cases) {
        std::string xml = "untouched";
        EXPECT_EQ(9, CChannelCfg::getXmlStreamingChannel(&xml, c.answer)) << c.name;
        EXPECT_EQ("untouched", xml) << c.name;
    }
}

TEST(ChannelAnswerToXml, NullTransportGivesTheDefaultSection) {
    const Json::Value answer =
        withMember(minimalAnswer(), {"StreamingChannel", "Transport"}, Json::Value());
    std::string xml;
    ASSERT_EQ(0, CChannelCfg::getXmlStreamingChannel(&xml, answer));
    XmlEntries transport;
    for (const auto& entry : entriesOf(xml)) {
        if (entry.first.rfind("/StreamingChannel/Transport", 0) == 0) transport.push_back(entry);
    }
    const XmlEntries expected = {
        {"/StreamingChannel/Transport", ""},
        {"/StreamingChannel/Transport/ControlProtocolList", ""},
        {"/StreamingChannel/Transport/ControlProtocolList/ControlProtocol", ""},
        {"/StreamingChannel/Transport/ControlProtocolList/ControlProtocol/streamingTransport",
         "RTSP"},
        {"/StreamingChannel/Transport/Multicast", ""},
        {"/StreamingChannel/Transport/Multicast/enabled", "true"},
        {"/StreamingChannel/Transport/Multicast/destIPAddress", "0.0.0.0"},
        {"/StreamingChannel/Transport/Multicast/videoDestPortNo", "0"},
        {"/StreamingChannel/Transport/Multicast/audioDestPortNo", "0"},
    };
    EXPECT_EQ(expected, transport);
}

TEST(ChannelAnswerToXml, TransportValueRules) {
    const MemberPath transport = {"StreamingChannel", "Transport"};
    Json::Value answer = minimalAnswer();
    at(answer, transport) = parseJson(R"({
        "maxPacketSize":1500.0, "audioPacketLength":"1500", "audioInboundPacketLength":1.5,
        "audioInboundPortNo":5000, "videoSourcePortNo":-1, "audioSourcePortNo":2147483648,
        "ControlProtocolList":[],
        "Unicast":{"enabled":true,"interfaceID":5,"rtpTransportType":"RTP/UDP"},
        "Security":{"enabled":false}})");
    std::string xml;
    ASSERT_EQ(0, CChannelCfg::getXmlStreamingChannel(&xml, answer));
    XmlEntries written;
    for (const auto& entry : entriesOf(xml)) {
        if (entry.first.rfind("/StreamingChannel/Transport/", 0) == 0) {
            written.emplace_back(entry.first.substr(28), entry.second);
        }
    }
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
    EXPECT_EQ(expected, written);
}

TEST(ChannelAnswerToXml, OptionalTopLevelBooleansNeedJsonBooleans) {
    Json::Value answer = minimalAnswer();
    at(answer, {"StreamingChannel", "enableCABAC"}) = "true";
    at(answer, {"StreamingChannel", "subStreamRecStatus"}) = false;
    at(answer, {"StreamingChannel", "customStreamEnable"}) = 1;
    std::string xml;
    ASSERT_EQ(0, CChannelCfg::getXmlStreamingChannel(&xml, answer));
    EXPECT_FALSE(textAt(xml, "/StreamingChannel/enableCABAC"));
    EXPECT_EQ("false", textAt(xml, "/StreamingChannel/subStreamRecStatus"));
    EXPECT_FALSE(textAt(xml, "/StreamingChannel/customStreamEnable"));
    EXPECT_EQ(std::string::npos, xml.find("<?xml")) << "answer documents carry no declaration";
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
    std::string xml;
    ASSERT_EQ(0, CChannelCfg::getXmlStreamingChannelList(
                     &xml, listOf({"101", "102", Json::Value(201), "202"})));
    EXPECT_EQ((std::vector<std::string>{"101", "102"}), listedIds(xml));
    EXPECT_TRUE(log.contains("get xml streamingchannel[2] fail", 5));
}

TEST(ChannelList, NonObjectElementEndsTheListEarly) {
    Json::Value root = listOf({"101"});
    root["StreamingChannelList"].append("102");
    root["StreamingChannelList"].append(listOf({"103"})["StreamingChannelList"][0]);
    std::string xml;
    ASSERT_EQ(0, CChannelCfg::getXmlStreamingChannelList(&xml, root));
    EXPECT_EQ((std::vector<std::string>{"101"}), listedIds(xml));
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
