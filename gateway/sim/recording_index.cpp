#include "gateway/sim/recording_index.h"

#include <cstdio>
#include <vector>

#include "gateway/sim/device_error.h"
#include "gateway/sim/json_util.h"

namespace korva::sim {

namespace {

constexpr std::time_t kSegment = 3600;
constexpr const char* kStreamSegments[] = {"MAIN", "SUB", "SUB1"};

struct Query {
    std::string searchId;
    int track = 101;
    std::time_t start = 0;
    std::time_t end = 0;
    bool video = true;
    int maxResults = RecordingIndex::kDefaultMaxResults;
    int position = 0;
    std::string metadata;
};

std::string compactTime(std::time_t t) {
    std::tm tm{};
    gmtime_r(&t, &tm);
    char buffer[32];
    std::strftime(buffer, sizeof buffer, "%Y%m%dT%H%M%SZ", &tm);
    return buffer;
}

// First element's member of a one-element list such as [{"trackID":101}].
const Json::Value& firstOf(const Json::Value& list, const char* name) {
    static const Json::Value kNull;
    if (!list.isArray() || list.empty()) return kNull;
    return member(list[0], name);
}

// Reads the query; "" when usable, else the status object.
std::string readQuery(const Json::Value& description, std::time_t begin, std::time_t end,
                      Query* query) {
    const Json::Value& searchId = member(description, "searchID");
    if (searchId.isString()) query->searchId = searchId.asString();
    const Json::Value& track = firstOf(member(description, "trackIDList"), "trackID");
    if (!track.isNull()) {
        if (!track.isInt()) return deviceStatus(kBadParameters, "trackID must be an integer");
        query->track = track.asInt();
    }
    query->start = begin;
    query->end = end;
    const Json::Value& span = firstOf(member(description, "timeSpanList"), "timeSpan");
    for (auto [name, out] :
         {std::pair{"startTime", &query->start}, std::pair{"endTime", &query->end}}) {
        const Json::Value& value = member(span, name);
        if (value.isNull()) continue;
        if (!value.isString() || !RecordingIndex::parseTime(value.asString(), out)) {
            return deviceStatus(kTimeFormatError, std::string(name) + " is not an ISO 8601 time");
        }
    }
    if (query->start > query->end) {
        return deviceStatus(kInvalidSearchConditions, "startTime is after endTime");
    }
    const Json::Value& type = firstOf(member(description, "contentTypeList"), "contentType");
    if (type.isString()) query->video = type.asString() == "video" || type.asString() == "all";
    const Json::Value& maxResults = member(description, "maxResults");
    if (!maxResults.isNull()) {
        if (!maxResults.isInt() || maxResults.asInt() < 1 ||
            maxResults.asInt() > RecordingIndex::kMaxResults) {
            return deviceStatus(kBeyondRangeLimit, "maxResults must be within 1..500");
        }
        query->maxResults = maxResults.asInt();
    }
    const Json::Value& position = member(description, "searchResultPostion");
    if (!position.isNull()) {
        if (!position.isInt() || position.asInt() < 0) {
            return deviceStatus(kBeyondRangeLimit, "searchResultPostion must not be negative");
        }
        query->position = position.asInt();
    }
    const Json::Value& metadata =
        firstOf(member(description, "metadataList"), "metadataDescriptor");
    if (metadata.isString()) query->metadata = metadata.asString();
    return "";
}

}  // namespace

RecordingIndex::RecordingIndex(std::string sourceId, std::string host, int inputs, std::time_t now,
                               int days)
    : m_sourceId(std::move(sourceId)),
      m_host(std::move(host)),
      m_inputs(inputs),
      m_end(now - now % kSegment),
      m_begin(m_end - static_cast<std::time_t>(days) * 24 * kSegment) {}

std::string RecordingIndex::formatTime(std::time_t t) {
    std::tm tm{};
    gmtime_r(&t, &tm);
    char buffer[32];
    std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%SZ", &tm);
    return buffer;
}

bool RecordingIndex::parseTime(const std::string& text, std::time_t* out) {
    int year, month, day, hour, minute, second, consumed = 0;
    if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%n", &year, &month, &day, &hour, &minute,
                    &second, &consumed) != 6 ||
        consumed != 19) {
        return false;
    }
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60) {
        return false;
    }
    long offset = 0;
    const std::string zone = text.substr(19);
    if (zone.size() == 6 && (zone[0] == '+' || zone[0] == '-') && zone[3] == ':') {
        int zoneHours = 0, zoneMinutes = 0;
        if (std::sscanf(zone.c_str() + 1, "%2d:%2d", &zoneHours, &zoneMinutes) != 2) return false;
        offset = (zoneHours * 3600L + zoneMinutes * 60L) * (zone[0] == '-' ? -1 : 1);
    } else if (!zone.empty() && zone != "Z") {
        return false;
    }
    std::tm tm{};
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    *out = timegm(&tm) - offset;
    return true;
}

std::string RecordingIndex::search(const std::string& body) const {
    Json::Value root;
    if (!parseJson(body, &root)) return deviceStatus(kBadJsonFormat, "body is not JSON");
    const Json::Value& description = member(root, "CMSearchDescription");
    if (!description.isObject()) {
        return deviceStatus(kBadJsonContent, "CMSearchDescription is missing");
    }
    Query query;
    if (std::string error = readQuery(description, m_begin, m_end, &query); !error.empty()) {
        return error;
    }
    const int channel = query.track / 100;
    const int stream = query.track % 100;
    if (channel < 1 || channel > m_inputs || stream < 1 || stream > 3) {
        return deviceStatus(kInvalidChannel,
                            "track " + std::to_string(query.track) + " does not exist");
    }

    // Segments overlapping [start, end].
    std::vector<std::time_t> segments;
    if (query.video && stream <= 2) {
        for (std::time_t t = m_begin; t < m_end; t += kSegment) {
            if (t + kSegment - 1 >= query.start && t <= query.end) segments.push_back(t);
        }
    }
    Json::Value result(Json::objectValue);
    result["searchID"] = query.searchId;
    result["responseStatus"] = true;
    Json::Value& matches = result["matchList"] = Json::Value(Json::arrayValue);
    const std::size_t first = static_cast<std::size_t>(query.position);
    std::size_t i = first;
    for (; i < segments.size() && i < first + static_cast<std::size_t>(query.maxResults); ++i) {
        const std::time_t t = segments[i];
        Json::Value item(Json::objectValue);
        item["sourceID"] = m_sourceId + "-" + std::to_string(channel);
        item["trackID"] = query.track;
        item["timeSpan"]["startTime"] = formatTime(t);
        item["timeSpan"]["endTime"] = formatTime(t + kSegment - 1);
        Json::Value& descriptor = item["mediaSegmentDescriptor"];
        descriptor["contenType"] = "video";
        descriptor["codecType"] = stream == 1 ? "H.265" : "H.264-BP";
        descriptor["playbackURI"] = "rtsp://" + m_host + ":554/dac/camera/" + m_sourceId +
                                    std::to_string(channel) + "/" + kStreamSegments[stream - 1] +
                                    "/playback?starttime=" + compactTime(t) +
                                    "&endtime=" + compactTime(t + kSegment - 1);
        if (!query.metadata.empty()) item["metadataMatches"]["metadataDescriptor"] = query.metadata;
        Json::Value entry(Json::objectValue);
        entry["searchMatchItem"] = item;
        matches.append(entry);
    }
    result["numOfMatches"] = static_cast<int>(matches.size());
    result["responseStatusStrg"] =
        matches.empty() ? "NO MATCHES" : (i < segments.size() ? "MORE" : "OK");
    Json::Value answer(Json::objectValue);
    answer["CMSearchResult"] = result;
    return writeJson(answer);
}

}  // namespace korva::sim
