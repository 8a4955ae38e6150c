// Video and Audio sections of a device answer: the value rule of each member written to XML.
#include <gtest/gtest.h>

#include <string>

#include "plugin/handlers/channel_cfg.h"
#include "tests/plugin/channel/channel_test_support.h"

namespace {

using namespace channel_test;
using QXKORVAProtocol::CChannelCfg;

enum class Outcome { kFails, kAbsent, kText };

struct RuleCase {
    const char* name;
    MemberPath member;  // below "StreamingChannel"
    Json::Value value;  // null Json::Value() is a JSON null; see `erase`
    Outcome outcome;
    const char* text = "";  // for kText
    bool erase = false;     // remove the member instead of setting it
};

Json::Value uint32Max() {
    return Json::Value(Json::UInt(4294967295u));
}

const RuleCase kRuleCases[] = {
    // smoothing is written only from 1 to 100.
    {"smoothing 0", {"Video", "smoothing"}, 0, Outcome::kAbsent},
    {"smoothing 1", {"Video", "smoothing"}, 1, Outcome::kText, "1"},
    {"smoothing 100", {"Video", "smoothing"}, 100, Outcome::kText, "100"},
    {"smoothing 101", {"Video", "smoothing"}, 101, Outcome::kAbsent},
    // Optional members of the wrong type are left out.
    {"mirrorEnabled text", {"Video", "mirrorEnabled"}, "true", Outcome::kAbsent},
    {"videoScanType number", {"Video", "videoScanType"}, 1, Outcome::kAbsent},
    {"enableCABAC text", {"enableCABAC"}, "true", Outcome::kAbsent},
    {"subStreamRecStatus", {"subStreamRecStatus"}, false, Outcome::kText, "false"},
    {"keyFrameInterval past 32 bits",
     {"Video", "keyFrameInterval"},
     Json::Int64(2147483648LL),
     Outcome::kAbsent},
    {"keyFrameInterval smallest",
     {"Video", "keyFrameInterval"},
     Json::Int64(-2147483648LL),
     Outcome::kText,
     "-2147483648"},
    {"fixedQuality integral real", {"Video", "fixedQuality"}, 60.0, Outcome::kText, "60"},
    {"fixedQuality fraction", {"Video", "fixedQuality"}, 60.5, Outcome::kAbsent},
    {"constantBitRate never goes back", {"Video", "constantBitRate"}, 4096, Outcome::kAbsent},
    // Required members of Video.
    {"Video enabled text", {"Video", "enabled"}, "true", Outcome::kFails},
    {"videoInputChannelID number", {"Video", "videoInputChannelID"}, 1, Outcome::kFails},
    {"videoResolutionWidth text", {"Video", "videoResolutionWidth"}, "1920", Outcome::kFails},
    {"videoResolutionHeight missing",
     {"Video", "videoResolutionHeight"},
     0,
     Outcome::kFails,
     "",
     true},
    {"maxFrameRate missing", {"Video", "maxFrameRate"}, 0, Outcome::kFails, "", true},
    {"maxFrameRate past 32 bits", {"Video", "maxFrameRate"}, uint32Max(), Outcome::kFails},
    // videoCodecType: any scalar is written as its text; containers fail.
    {"videoCodecType number", {"Video", "videoCodecType"}, 5, Outcome::kText, "5"},
    {"videoCodecType null", {"Video", "videoCodecType"}, Json::Value(), Outcome::kText, ""},
    {"videoCodecType array",
     {"Video", "videoCodecType"},
     parseJson(R"(["H.264"])"),
     Outcome::kFails},
    {"videoCodecType object",
     {"Video", "videoCodecType"},
     parseJson(R"({"a":1})"),
     Outcome::kFails},
    {"videoCodecType missing", {"Video", "videoCodecType"}, 0, Outcome::kFails, "", true},
    // Subsections: enabled must be a boolean; values other than objects fail.
    {"SVC mode not text",
     {"Video", "SVC"},
     parseJson(R"({"enabled":true,"SVCMode":3})"),
     Outcome::kText,
     "true"},
    {"SVC enabled text", {"Video", "SVC"}, parseJson(R"({"enabled":"true"})"), Outcome::kFails},
    {"SVC array", {"Video", "SVC"}, parseJson("[true]"), Outcome::kFails},
    {"SmartCodec null", {"Video", "SmartCodec"}, Json::Value(), Outcome::kFails},
    {"Video array", {"Video"}, parseJson("[]"), Outcome::kFails},
    {"Video text", {"Video"}, "x", Outcome::kFails},
    {"Video absent", {"Video"}, 0, Outcome::kAbsent, "", true},
    // audioSamplingRate: any JSON number, written with six decimals.
    {"sampling rate integer", {"Audio", "audioSamplingRate"}, 16, Outcome::kText, "16.000000"},
    {"sampling rate real", {"Audio", "audioSamplingRate"}, 44.1, Outcome::kText, "44.100000"},
    {"sampling rate unsigned",
     {"Audio", "audioSamplingRate"},
     uint32Max(),
     Outcome::kText,
     "4294967295.000000"},
    {"sampling rate text", {"Audio", "audioSamplingRate"}, "16", Outcome::kAbsent},
    {"sampling rate huge", {"Audio", "audioSamplingRate"}, 1e300, Outcome::kText, nullptr},
    // VoiceChanger: enabled a boolean, level an integer from -12 to 12.
    {"VoiceChanger level 13",
     {"Audio", "VoiceChanger"},
     parseJson(R"({"enabled":true,"level":13})"),
     Outcome::kFails},
    {"VoiceChanger level -12", {"Audio", "VoiceChanger", "level"}, -12, Outcome::kText, "-12"},
    {"VoiceChanger level 12", {"Audio", "VoiceChanger", "level"}, 12, Outcome::kText, "12"},
    {"VoiceChanger level text",
     {"Audio", "VoiceChanger"},
     parseJson(R"({"enabled":true,"level":"3"})"),
     Outcome::kFails},
    {"VoiceChanger enabled text",
     {"Audio", "VoiceChanger"},
     parseJson(R"({"enabled":"true","level":0})"),
     Outcome::kFails},
    {"VoiceChanger array", {"Audio", "VoiceChanger"}, parseJson("[]"), Outcome::kFails},
    // Required members of Audio.
    {"audioInputChannelID number", {"Audio", "audioInputChannelID"}, 1, Outcome::kFails},
    {"audioCompressionType missing",
     {"Audio", "audioCompressionType"},
     0,
     Outcome::kFails,
     "",
     true},
    {"Audio array", {"Audio"}, parseJson("[{}]"), Outcome::kFails},
};

std::string elementPath(const MemberPath& member) {
    std::string path = "/StreamingChannel";
    for (const std::string& name : member) path += "/" + name;
    return path;
}

TEST(ChannelSectionsToXml, ValueRules) {
    for (const RuleCase& c : kRuleCases) {
        SCOPED_TRACE(c.name);
        MemberPath path = c.member;
        path.insert(path.begin(), "StreamingChannel");
        Json::Value answer = minimalAnswer();
        if (path.back() == "level") {
            at(answer, {"StreamingChannel", "Audio", "VoiceChanger", "enabled"}) = true;
        }
        answer = c.erase ? withoutMember(answer, path) : withMember(answer, path, c.value);

        std::string xml = "untouched";
        const int result = CChannelCfg::getXmlStreamingChannel(&xml, answer);
        if (c.outcome == Outcome::kFails) {
            EXPECT_EQ(9, result);
            EXPECT_EQ("untouched", xml);
            continue;
        }
        ASSERT_EQ(0, result);
        // A subsection is checked through its "enabled" child.
        std::string where = elementPath(c.member);
        if (c.value.isObject()) where += "/enabled";
        const auto text = textAt(xml, where);
        if (c.outcome == Outcome::kAbsent) {
            EXPECT_FALSE(text) << where;
        } else if (c.text != nullptr) {
            EXPECT_EQ(c.text, text.value_or("<absent>")) << where;
        } else {
            EXPECT_TRUE(text) << where;  // present; the exact text is not the point
        }
    }
}

// A section writer that refuses its value appends nothing, even when the fault is found in a
// member that comes late in the section.
TEST(ChannelSectionsToXml, RefusedSectionLeavesTheDocumentUnchanged) {
    const struct {
        const char* name;
        int (*write)(QXBase::CXmlBase&, const Json::Value&);
        Json::Value value;
    } cases[] = {
        {"Video without maxFrameRate", &CChannelCfg::getXmlVideo,
         withoutMember(minimalAnswer()["StreamingChannel"]["Video"], {"maxFrameRate"})},
        {"Video with bad SmartCodec", &CChannelCfg::getXmlVideo,
         withMember(minimalAnswer()["StreamingChannel"]["Video"], {"SmartCodec"}, 1)},
        {"Audio with bad VoiceChanger", &CChannelCfg::getXmlAudio,
         withMember(minimalAnswer()["StreamingChannel"]["Audio"], {"VoiceChanger"},
                    parseJson(R"({"enabled":true,"level":99})"))},
        {"Transport with bad Security", &CChannelCfg::getXmlTransport,
         withMember(minimalAnswer()["StreamingChannel"]["Transport"], {"Security"}, "x")},
    };
    for (const auto& c : cases) {
        QXBase::CXmlBase xml;
        xml.CreateRoot("StreamingChannel");
        xml.AddNode("id", "101");
        xml.OutOfElem();
        const std::string before = xml.WriteToBuf();
        EXPECT_EQ(9, c.write(xml, c.value)) << c.name;
        EXPECT_EQ(before, xml.WriteToBuf()) << c.name;
    }
}

}  // namespace
