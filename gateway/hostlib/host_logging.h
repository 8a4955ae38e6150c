// Level, sink and counters of the host log (QX_Log_Print).
// Gateway side of the host library (not visible to a plug-in). Thread-safe unless noted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace korva::host {

// QX_Log_Print formats the line on the caller's thread and hands it to one writer thread through
// a bounded queue (kLogQueueBytes); the caller never waits for stderr. When the queue is full the
// line is dropped and counted. Level-5 lines of one cause (the same format string) are limited
// to kLogCauseLinesPerSecond per second; the next line of that cause after the second reports
// "suppressed K similar lines". The queue is flushed at exit.

constexpr size_t kLogQueueBytes = 1 << 20;
constexpr int kLogCauseLinesPerSecond = 20;

// Lines below this level are dropped (default 4).
void setLogLevel(int level);
// Receives every line that passes the level and the rate limit, instead of stderr, synchronously
// on the logging thread (tests). Empty: back to the asynchronous stderr writer.
using LogSink = std::function<void(int level, const std::string& module, const std::string& text)>;
void setLogSink(LogSink sink);
// Waits (at most 2 s) until every line queued for stderr before the call has been written.
void flushLog();

struct LogStats {
    uint64_t dropped = 0;     // lines lost because the writer's queue was full
    uint64_t suppressed = 0;  // level-5 lines held back by the rate limit
};
LogStats logStats();

}  // namespace korva::host
