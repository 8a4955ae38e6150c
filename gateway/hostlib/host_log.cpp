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
#include "gateway/hostlib/time_text.h"
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
    std::string line =
        korva::host::timestampText(std::chrono::system_clock::now(), korva::host::TimeZone::kLocal);
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
