#include "gateway/hostlib/time_text.h"

#include <cstdio>
#include <ctime>

namespace korva::host {

std::string timestampText(std::chrono::system_clock::time_point when, TimeZone zone) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(when);
    auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(when.time_since_epoch()).count() %
        1000;
    if (ms < 0) ms += 1000;  // a moment before 1970
    std::tm tm{};
    if (zone == TimeZone::kUtc) {
        gmtime_r(&seconds, &tm);
    } else {
        localtime_r(&seconds, &tm);
    }
    char text[64];
    const std::size_t n = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &tm);
    if (zone == TimeZone::kUtc) {
        std::snprintf(text + n, sizeof text - n, ".%03dZ", static_cast<int>(ms));
    } else {
        const long offset = tm.tm_gmtoff < 0 ? -tm.tm_gmtoff : tm.tm_gmtoff;
        std::snprintf(text + n, sizeof text - n, ".%03d%c%02ld:%02ld", static_cast<int>(ms),
                      tm.tm_gmtoff < 0 ? '-' : '+', offset / 3600 % 100, offset % 3600 / 60);
    }
    return text;
}

}  // namespace korva::host
