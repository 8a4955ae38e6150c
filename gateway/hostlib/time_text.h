// The one text form of a moment the host and the gateway write: ISO 8601 with milliseconds.
// Used by the log, the access log and the admin API. Thread-safe (no shared state).
#pragma once

#include <chrono>
#include <string>

namespace korva::host {

enum class TimeZone { kLocal, kUtc };

// kLocal: "2024-05-01T12:00:00.123+02:00" (the offset of the machine's zone at that moment);
// kUtc: "2024-05-01T10:00:00.123Z".
std::string timestampText(std::chrono::system_clock::time_point when, TimeZone zone);

}  // namespace korva::host
