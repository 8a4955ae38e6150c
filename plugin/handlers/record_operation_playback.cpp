// Playback addresses: the gateway's address to a KORVA track address.
//
// A gateway address reads: prefix, "/dac", ..., "camera", one more character, a 36-character
// identifier directly followed by the channel number, "/", ..., a stream segment ("/MAIN/",
// "/SUB/" or "/SUB1/"), ..., "?" and a query. Its track address is the prefix,
// "/KORVA/Streaming/tracks/", the track number (channel * 100 + 1 main, 2 sub, 3 third stream)
// and the same query.
#include <cstdint>
#include <string>

#include "host/kvl_runtime.h"
#include "plugin/handlers/record_operation.h"

namespace QXKORVAProtocol {

namespace {

constexpr size_t kIdentifierLength = 36;
// "camera" and the one character after it.
constexpr size_t kCameraSegmentOffset = 7;

struct StreamSegment {
    const char* segment;
    int streamNumber;
};

// Tried in this order.
constexpr StreamSegment kStreamSegments[] = {{"/MAIN/", 1}, {"/SUB/", 2}, {"/SUB1/", 3}};

}  // namespace

std::string CRecordOperation::covertPlaybackUri(const std::string& gatewayUri) {
    const size_t dac = gatewayUri.find("/dac");
    if (dac == std::string::npos) return std::string();
    const size_t camera = gatewayUri.find("camera");
    if (camera == std::string::npos) return std::string();
    const size_t segmentStart = camera + kCameraSegmentOffset;
    const size_t slash = gatewayUri.find('/', segmentStart);
    if (slash == std::string::npos) return std::string();
    // A segment no longer than an identifier carries no channel number: passed through.
    if (slash - segmentStart <= kIdentifierLength) return gatewayUri;

    const int64_t channel = KVL_Atoi32(gatewayUri.c_str() + segmentStart + kIdentifierLength);
    std::string track;
    for (const StreamSegment& stream : kStreamSegments) {
        if (gatewayUri.find(stream.segment) != std::string::npos) {
            track = std::to_string(channel * 100 + stream.streamNumber);
            break;
        }
    }
    if (track.empty()) return std::string();
    const size_t query = gatewayUri.find('?');
    if (query == std::string::npos) return std::string();
    return gatewayUri.substr(0, dac) + "/KORVA/Streaming/tracks/" + track +
           gatewayUri.substr(query);
}

}  // namespace QXKORVAProtocol
