// Content search over the simulated camera's recordings.
#include "gateway/sim/recording_index.h"

#include <gtest/gtest.h>

#include <tuple>

#include "gateway/sim/device_error.h"
#include "gateway/sim/json_util.h"

namespace korva::sim {
namespace {

constexpr std::time_t kNow = 1700003000;  // 2023-11-14T23:03:20Z; the last segment ends at 23:00
const std::string kSource = "0123abcd-0000-1111-2222-333344445555";

Json::Value search(const std::string& description) {
    const RecordingIndex index(kSource, "10.0.0.5", 2, kNow, 1);
    Json::Value value;
    EXPECT_TRUE(parseJson(index.search(description), &value));
    return value;
}

std::string body(int track, const std::string& extra = "") {
    return R"({"CMSearchDescription":{"searchID":"q","trackIDList":[{"trackID":)" +
           std::to_string(track) + "}]" + extra + "}}";
}

TEST(RecordingIndex, ParsesTimesInTheAcceptedForms) {
    const std::pair<const char*, std::time_t> good[] = {
        {"2023-11-14T22:00:00Z", 1699999200},
        {"2023-11-14T22:00:00", 1699999200},
        {"2023-11-15T00:00:00+02:00", 1699999200},
    };
    for (const auto& [text, expected] : good) {
        std::time_t t = 0;
        EXPECT_TRUE(RecordingIndex::parseTime(text, &t)) << text;
        EXPECT_EQ(t, expected) << text;
    }
    for (const char* bad : {"", "2023-11-14", "2023-13-14T22:00:00Z", "2023-11-14T22:00:00X",
                            "2023-11-14 22:00:00Z", "2023-11-14T22:00:00+0200"}) {
        std::time_t t = 0;
        EXPECT_FALSE(RecordingIndex::parseTime(bad, &t)) << bad;
    }
    EXPECT_EQ(RecordingIndex::formatTime(1699999200), "2023-11-14T22:00:00Z");
}

TEST(RecordingIndex, MatchesSegmentsInTheTimeSpanWithPlaybackAddressesInGatewayForm) {
    const Json::Value result = search(body(
        102,
        R"(,"timeSpanList":[{"timeSpan":{"startTime":"2023-11-14T20:30:00Z","endTime":"2023-11-14T22:10:00Z"}}],"metadataList":[{"metadataDescriptor":"m"}])"))
        ["CMSearchResult"];
    ASSERT_EQ(result["numOfMatches"].asInt(), 3);  // 20:00, 21:00, 22:00
    EXPECT_EQ(result["responseStatusStrg"].asString(), "OK");
    EXPECT_EQ(result["searchID"].asString(), "q");
    const Json::Value& first = result["matchList"][0]["searchMatchItem"];
    EXPECT_EQ(first["timeSpan"]["startTime"].asString(), "2023-11-14T20:00:00Z");
    EXPECT_EQ(first["timeSpan"]["endTime"].asString(), "2023-11-14T20:59:59Z");
    EXPECT_EQ(first["trackID"].asInt(), 102);
    EXPECT_EQ(first["metadataMatches"]["metadataDescriptor"].asString(), "m");
    EXPECT_EQ(first["mediaSegmentDescriptor"]["playbackURI"].asString(),
              "rtsp://10.0.0.5:554/dac/camera/" + kSource +
                  "1/SUB/playback?starttime=20231114T200000Z&endtime=20231114T205959Z");
}

TEST(RecordingIndex, PagesWithMaxResultsAndPosition) {
    // One day of one-hour segments: 24 for a recording track.
    const std::tuple<const char*, int, const char*> cases[] = {
        {"", 24, "OK"},
        {R"(,"maxResults":10)", 10, "MORE"},
        {R"(,"maxResults":10,"searchResultPostion":20)", 4, "OK"},
        {R"(,"searchResultPostion":24)", 0, "NO MATCHES"},
        {R"(,"contentTypeList":[{"contentType":"audio"}])", 0, "NO MATCHES"},
    };
    for (const auto& [extra, matches, status] : cases) {
        const Json::Value result = search(body(101, extra))["CMSearchResult"];
        EXPECT_EQ(result["numOfMatches"].asInt(), matches) << extra;
        EXPECT_EQ(result["responseStatusStrg"].asString(), status) << extra;
    }
    EXPECT_EQ(search(body(103))["CMSearchResult"]["numOfMatches"].asInt(), 0);
}

TEST(RecordingIndex, RefusesBadSearches) {
    const std::pair<std::string, int> cases[] = {
        {"{", kBadJsonFormat},
        {R"({"other":1})", kBadJsonContent},
        {body(301), kInvalidChannel},
        {body(104), kInvalidChannel},
        {R"({"CMSearchDescription":{"trackIDList":[{"trackID":"101"}]}})", kBadParameters},
        {body(101, R"(,"timeSpanList":[{"timeSpan":{"startTime":"yesterday"}}])"),
         kTimeFormatError},
        {body(
             101,
             R"(,"timeSpanList":[{"timeSpan":{"startTime":"2023-11-14T22:00:00Z","endTime":"2023-11-14T21:00:00Z"}}])"),
         kInvalidSearchConditions},
        {body(101, R"(,"maxResults":0)"), kBeyondRangeLimit},
        {body(101, R"(,"maxResults":501)"), kBeyondRangeLimit},
        {body(101, R"(,"searchResultPostion":-1)"), kBeyondRangeLimit},
    };
    for (const auto& [text, code] : cases) {
        EXPECT_EQ(search(text)["errorCode"].asInt(), code) << text;
    }
}

}  // namespace
}  // namespace korva::sim
