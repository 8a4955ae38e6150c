// Content search answers: defaults, playback address rewriting and the ampersand clean-up.
#include "plugin/handlers/record_operation.h"

#include <gtest/gtest.h>

#include "tests/plugin/device/device_test_support.h"

namespace korva::device_tests {
namespace {

using QXKORVAProtocol::CRecordOperation;

const std::string kId = "6f1d2c3b-aaaa-bbbb-cccc-0123456789ab";  // 36 characters

TEST(RecordPlayback, GatewayAddressesBecomeTrackAddresses) {
    const struct {
        std::string gateway;
        std::string korva;
    } cases[] = {
        {"rtsp://10.1.2.3:554/dac/camera=" + kId + "12/SUB/rec?start=1&end=2",
         "rtsp://10.1.2.3:554/KORVA/Streaming/tracks/1202?start=1&end=2"},
        {"rtsp://h/dac/camera=" + kId + "1/SUB1/p?s=1", "rtsp://h/KORVA/Streaming/tracks/103?s=1"},
        {"/dac/camera/" + kId + "3/MAIN/?", "/KORVA/Streaming/tracks/301?"},
        {"rtsp://h/dac/camera=" + kId + "1/MAIN/p", ""},       // no query
        {"rtsp://h/dac/camera=" + kId + "1/THIRD/p?s=1", ""},  // no stream segment
        {"rtsp://h/dac/cam=" + kId + "1/MAIN/p?s=1", ""},      // no "camera"
        {"rtsp://h/dac/camera=" + kId + "12?s=1", ""},         // no "/" after the camera
        // A camera segment of at most 36 characters carries no channel: passed through.
        {"rtsp://h/dac/camera=" + kId + "/MAIN/p?s=1",
         "rtsp://h/dac/camera=" + kId + "/MAIN/p?s=1"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.korva, CRecordOperation::covertPlaybackUri(c.gateway)) << c.gateway;
    }
}

TEST(RecordResult, AmpersandsAreUnescapedRepeatedly) {
    const struct {
        const char* in;
        const char* out;
    } cases[] = {{"a&amp;amp;amp;b", "a&b"}, {"&am;p&amp", "&am;p&amp"}, {"x&amp;", "x&"}};
    for (const auto& c : cases) {
        std::string text = c.in;
        CRecordOperation::unescapeAmpersands(&text);
        EXPECT_EQ(c.out, text) << c.in;
    }
    std::string xml;
    ASSERT_EQ(0,
              CRecordOperation().covertRsp(&xml, json(R"({"CMSearchResult":{"searchID":"a&b"}})"),
                                           "/KORVA/ContentMgmt/search", POST));
    EXPECT_EQ(0u, xml.rfind("<CMSearchResult>", 0)) << "no declaration: " << xml;
    EXPECT_NE(std::string::npos, xml.find("<searchID>a&b</searchID>")) << xml;
}

std::string convert(const std::string& answer, int expected = 0) {
    std::string xml;
    EXPECT_EQ(expected,
              CRecordOperation().covertRsp(&xml, json(answer), "/KORVA/ContentMgmt/search/", POST))
        << answer;
    return tree(xml);
}

TEST(RecordResult, MissingMembersTakeTheirDefaults) {
    const std::string empty =
        "CMSearchResult{searchID=,responseStatus=false,responseStatusStrg=,numOfMatches=0,"
        "matchList=}";
    EXPECT_EQ(empty, convert("{}"));
    EXPECT_EQ(empty, convert(R"({"CMSearchResult":null})"));
    const std::string manual = std::string("metadataMatches{metadataDescriptor=") +
                               QXKORVAProtocol::kManualRecordingMetadata + "}";
    const std::string noSource = "sourceID=0000000000-0000-0000-0000-000000000000,";
    EXPECT_EQ(
        "CMSearchResult{searchID=42,responseStatus=true,responseStatusStrg=OK,numOfMatches=3,"
        "matchList{searchMatchItem{sourceID=src,trackID=101,timeSpan{startTime=a,endTime=b},"
        "mediaSegmentDescriptor{contentType=audio,codecType=G.711,"
        "playbackURI=rtsp://h/KORVA/Streaming/tracks/202?s=1},"
        "metadataMatches{metadataDescriptor=meta}},searchMatchItem{" +
            noSource +
            "mediaSegmentDescriptor{contentType=video,codecType=H.264-BP,playbackURI=}," + manual +
            "},searchMatchItem{" + noSource + manual + "}}}",
        convert(R"({"CMSearchResult":{"searchID":42,"responseStatus":1,"responseStatusStrg":"OK",
            "numOfMatches":3,"matchList":[
            {"searchMatchItem":{"sourceID":"src","trackID":101,"timeSpan":{"startTime":"a","endTime":"b"},
               "mediaSegmentDescriptor":{"contenType":"audio","codecType":"G.711","playbackURI":
               "rtsp://h/dac/camera=6f1d2c3b-aaaa-bbbb-cccc-0123456789ab2/SUB/p?s=1"},
               "metadataMatches":{"metadataDescriptor":"meta"}}},
            {"searchMatchItem":{"sourceID":null,"timeSpan":{"startTime":"a"},
               "mediaSegmentDescriptor":{"contentType":"audio","playbackURI":"rtsp://h/p"}}},
            {}]}})"));
}

TEST(RecordResult, UnreadableMemberTypesFail) {
    const std::string result = R"({"CMSearchResult":)";
    const std::string item = result + R"({"matchList":[{"searchMatchItem":)";
    for (const std::string& answer :
         {result + R"("x"})", result + R"({"responseStatus":"true"}})",
          result + R"({"numOfMatches":4294967296}})", result + R"({"matchList":[5]}})",
          item + "[]}]}}", item + R"({"trackID":"101"}}]}})",
          item + R"({"timeSpan":{"startTime":{},"endTime":"b"}}}]}})",
          item + R"({"mediaSegmentDescriptor":{"playbackURI":{}}}}]}})",
          item + R"({"metadataMatches":7}}]}})"}) {
        EXPECT_EQ("", convert(answer, 9));
    }
}

}  // namespace
}  // namespace korva::device_tests
