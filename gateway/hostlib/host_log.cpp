// The host logging function: "<time> <level> [<module>] <text>" to stderr (through the
// asynchronous writer) or to a test sink; level-5 lines rate-limited per format string.
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>

#include "gateway/hostlib/async_log_writer.h"
#include "gateway/hostlib/host_context.h"
#include "gateway/hostlib/host_logging.h"
#include "gateway/hostlib/log_rate_limiter.h"
#include "host/qx_log.h"

namespace korva::host::detail {

void writeAll(int fd, const std::string& bytes);

// The log's shared state: the test sink, the stderr writer and the rate limit of level-5 lines.
class LogService {
  public:
    std::shared_ptr<const LogSink> sink() {
        std::lock_guard<std::mutex> lock(m_sinkMutex);
        return m_sink;
    }
    void setSink(std::shared_ptr<const LogSink> sink) {
        std::lock_guard<std::mutex> lock(m_sinkMutex);
        m_sink = std::move(sink);
    }

    AsyncLogWriter& writer() { return m_writer; }
    LogRateLimiter& failureLimiter() { return m_failureLimiter; }

  private:
    std::mutex m_sinkMutex;
    std::shared_ptr<const LogSink> m_sink;
    // Its destructor writes what is still queued.
    AsyncLogWriter m_writer{kLogQueueBytes,
                            [](const std::string& bytes) { writeAll(STDERR_FILENO, bytes); }};
    LogRateLimiter m_failureLimiter{kLogCauseLinesPerSecond, std::chrono::seconds(1), 1024};
};

template struct PartDeleter<LogService>;
template Owned<LogService> makePart<LogService>();
void flush(LogService& log) {
    log.writer().flush(std::chrono::seconds(2));
}

}  // namespace korva::host::detail

namespace {

using korva::host::detail::context;
using korva::host::detail::LogRateLimiter;
using korva::host::detail::writeAll;

std::atomic<int> g_level{4};

// Local time with milliseconds: 2024-05-01T12:00:00.123+02:00.
std::string logTime() {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const int ms = static_cast<int>(
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() %
        1000);
    std::tm tm{};
    localtime_r(&seconds, &tm);
    const long offset = tm.tm_gmtoff;
    const long absOffset = offset < 0 ? -offset : offset;
    char text[96];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03d%c%02d:%02d",
                  tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec,
                  ms, offset < 0 ? '-' : '+', static_cast<int>(absOffset / 3600 % 100),
                  static_cast<int>(absOffset % 3600 / 60));
    return text;
}

}  // namespace

void korva::host::detail::writeAll(int fd, const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            return;
        }
        done += static_cast<size_t>(n);
    }
}

namespace {

// printf-style: the callers pass their own checked format strings through.
__attribute__((format(printf, 1, 0))) std::string formatText(const char* format, va_list args) {
    va_list copy;
    va_copy(copy, args);
    char small[512];
    const int needed = std::vsnprintf(small, sizeof small, format, args);
    std::string text;
    if (needed < 0) {
        text = format;  // a broken format: log it verbatim rather than nothing
    } else if (static_cast<size_t>(needed) < sizeof small) {
        text.assign(small, static_cast<size_t>(needed));
    } else {
        text.resize(static_cast<size_t>(needed) + 1);
        std::vsnprintf(text.data(), text.size(), format, copy);
        text.resize(static_cast<size_t>(needed));
    }
    va_end(copy);
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    return text;
}

// Hands one line to the test sink, or to the stderr writer as "<time> <level> [<tag>] <text>".
void emit(int level, const std::string& tag, const std::string& text) {
    const std::shared_ptr<const korva::host::LogSink> sink = context().log().sink();
    if (sink) {
        (*sink)(level, tag, text);
        return;
    }
    std::string line = logTime();
    line += ' ';
    line += std::to_string(level);
    line += " [";
    line += tag;
    line += "] ";
    line += text;
    line += '\n';
    context().log().writer().push(line);
}

}  // namespace

void QX_Log_Print(int level, const char* module, const char* format, ...) {
    if (level < g_level.load(std::memory_order_relaxed) || format == nullptr) return;
    const int savedErrno = errno;  // callers may log errno-dependent text after this call
    const std::string tag = module != nullptr ? module : "";

    if (level >= 5) {
        // One cause per format string: a flood of one failure must not bury the others.
        const auto verdict =
            context().log().failureLimiter().admit(format, LogRateLimiter::Clock::now());
        if (!verdict.pass) {
            errno = savedErrno;
            return;
        }
        if (verdict.suppressedBefore != 0) {
            emit(level, tag,
                 "suppressed " + std::to_string(verdict.suppressedBefore) +
                     " similar lines: " + format);
        }
    }

    va_list args;
    va_start(args, format);
    const std::string text = formatText(format, args);
    va_end(args);
    emit(level, tag, text);
    errno = savedErrno;
}

namespace korva::host {

void setLogLevel(int level) {
    g_level.store(level, std::memory_order_relaxed);
}

void setLogSink(LogSink sink) {
    std::shared_ptr<const LogSink> next;
    if (sink) next = std::make_shared<const LogSink>(std::move(sink));
    detail::context().log().setSink(std::move(next));
}

void flushLog() {
    detail::flush(detail::context().log());
}

LogStats logStats() {
    detail::LogService& log = detail::context().log();
    return {log.writer().dropped(), log.failureLimiter().suppressed()};
}

}  // namespace korva::host
