// Logging (level, line format, the bounded writer, the rate limit), nonces, ISO time and the
// configuration snapshots.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "gateway/hostlib/async_log_writer.h"
#include "gateway/hostlib/host_config.h"
#include "gateway/hostlib/host_logging.h"
#include "gateway/hostlib/log_rate_limiter.h"
#include "host/config_mgr.h"
#include "host/host_util.h"
#include "host/qx_log.h"

using namespace std::chrono_literals;

TEST(Log, LevelThresholdFormattingAndLongLines) {
    std::vector<std::string> lines;
    korva::host::setLogSink([&](int level, const std::string& module, const std::string& text) {
        lines.push_back(std::to_string(level) + " " + module + " " + text);
    });
    QX_Log_Print(3, "QXW", "below the default level 4");
    korva::host::setLogLevel(3);
    QX_Log_Print(2, "QXW", "[%s(%d)] dropped", "f", 1);
    QX_Log_Print(3, "QXW", "[%s(%d)] kept %s", "CEventPto::start", 42, "ok");
    QX_Log_Print(5, nullptr, "failure %x", 0x20000004u);
    const std::string big(100000, 'x');
    QX_Log_Print(5, "QXW", "<%s>", big.c_str());
    korva::host::setLogLevel(1);
    QX_Log_Print(1, "QXW", "now %d", 1);
    korva::host::setLogSink(nullptr);
    korva::host::setLogLevel(3);
    EXPECT_EQ(lines, (std::vector<std::string>{"3 QXW [CEventPto::start(42)] kept ok",
                                               "5  failure 20000004", "5 QXW <" + big + ">",
                                               "1 QXW now 1"}));
}

TEST(Log, WritesOneLineToStandardError) {
    char path[] = "/tmp/korva-log-XXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    const int saved = dup(STDERR_FILENO);
    dup2(fd, STDERR_FILENO);
    QX_Log_Print(4, "QXW", "hello %d", 7);
    korva::host::flushLog();  // the line is written by the log's own thread
    dup2(saved, STDERR_FILENO);
    close(saved);
    std::string text(256, '\0');
    const ssize_t n = pread(fd, text.data(), text.size(), 0);
    close(fd);
    unlink(path);
    ASSERT_GT(n, 0);
    text.resize(static_cast<size_t>(n));
    EXPECT_TRUE(std::regex_match(
        text,
        std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d 4 \[QXW\] hello 7\n)")))
        << text;
}

TEST(Log, TheWriterQueueIsBoundedCountsDropsAndKeepsOrder) {
    std::mutex gate;
    std::unique_lock<std::mutex> blocked(gate);  // the writer waits on its first batch
    std::string written;
    std::atomic<bool> writing{false};
    {
        korva::host::detail::AsyncLogWriter writer(16, [&](const std::string& bytes) {
            writing = true;
            std::lock_guard<std::mutex> wait(gate);
            written += bytes;
        });
        EXPECT_TRUE(writer.push("first\n"));
        while (!writing) std::this_thread::sleep_for(1ms);  // "first" has left the queue
        EXPECT_TRUE(writer.push("0123456789\n"));
        EXPECT_FALSE(writer.push("abcdef\n"));  // 11 + 7 bytes do not fit in 16
        EXPECT_TRUE(writer.push("abcd\n"));
        EXPECT_EQ(1u, writer.dropped());
        blocked.unlock();
        EXPECT_TRUE(writer.flush(2s));
        EXPECT_EQ("first\n0123456789\nabcd\n", written);
        EXPECT_TRUE(writer.push("last\n"));
    }  // the destructor writes what is queued
    EXPECT_EQ("first\n0123456789\nabcd\nlast\n", written);
}

TEST(Log, RepeatedFailuresOfOneCauseAreLimitedPerSecond) {
    using Limiter = korva::host::detail::LogRateLimiter;
    Limiter limiter(3, 1s, 2);
    const auto t0 = Limiter::Clock::time_point{};
    const char* causeA = "a";
    const char* causeB = "b";
    std::string verdicts;
    for (int i = 0; i < 5; ++i) verdicts += limiter.admit(causeA, t0).pass ? 'p' : 's';
    EXPECT_EQ("pppss", verdicts);
    EXPECT_TRUE(limiter.admit(causeB, t0 + 10ms).pass);  // another cause is not affected
    EXPECT_FALSE(limiter.admit(causeA, t0 + 999ms).pass);
    const auto next = limiter.admit(causeA, t0 + 1s);
    EXPECT_TRUE(next.pass);
    EXPECT_EQ(3u, next.suppressedBefore);  // reported once, with the cause's next line
    EXPECT_EQ(0u, limiter.admit(causeA, t0 + 1s).suppressedBefore);
    EXPECT_TRUE(limiter.admit("c", t0 + 1s).pass);  // beyond the table: not limited
    EXPECT_EQ(3u, limiter.suppressed());

    // Through the log function: level-5 lines of one format, with a test sink.
    std::vector<std::string> lines;
    korva::host::setLogSink(
        [&](int, const std::string&, const std::string& text) { lines.push_back(text); });
    for (int i = 0; i < korva::host::kLogCauseLinesPerSecond + 5; ++i) {
        QX_Log_Print(5, "QXW", "peer gone %d", i);
        QX_Log_Print(4, "QXW", "level 4 is not limited");
    }
    korva::host::setLogSink(nullptr);
    EXPECT_EQ(static_cast<size_t>(2 * korva::host::kLogCauseLinesPerSecond + 5), lines.size());
    EXPECT_EQ(5u, korva::host::logStats().suppressed);
}

// Fresh, printable nonces: the pipeline's and the digest check's challenges.
TEST(HostUtil, NonceRefusesSmallBuffersAndPrintableTimeIsIso8601) {
    char tiny[8] = {};
    EXPECT_EQ(CreateNonce(tiny, sizeof tiny), -1);
    EXPECT_EQ(CreateNonce(nullptr, 64), -1);

    const std::regex form(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d\d:\d\d)");
    EXPECT_TRUE(std::regex_match(GetCurTime8601(0), form)) << GetCurTime8601(0);
    const std::string utc = GetCurTime8601(1);
    EXPECT_TRUE(std::regex_match(utc, form));
    EXPECT_EQ(utc.substr(19), "+00:00");
}

TEST(Config, DefaultsAndSnapshots) {
    auto user = QX_ConfigMgr_GetUserCfg();
    ASSERT_NE(user, nullptr);
    EXPECT_EQ(user->isActivated(), 1);
    EXPECT_EQ(user->getRealm(), "KORVA Gateway");
    ASSERT_NE(QX_GatewayCfgBus_GetAccessProtocol(), nullptr);
    EXPECT_EQ(QX_GatewayCfgBus_GetAccessProtocol()->getExtRtspPort(), 8554);

    korva::host::setUserConfig(false, "Other");
    EXPECT_EQ(QX_ConfigMgr_GetUserCfg()->isActivated(), 0);
    EXPECT_EQ(user->getRealm(), "KORVA Gateway");  // an earlier snapshot does not change
    QXConfigMgr::NetworkPorts ports;
    ports.portMapping = true;
    ports.extHttpPort = 18080;
    korva::host::setNetworkConfig(ports);
    EXPECT_EQ(QX_GatewayCfgBus_GetAccessProtocol()->isPlatformPortMapping(), 1);
    EXPECT_EQ(QX_GatewayCfgBus_GetAccessProtocol()->getExtHttpPort(), 18080);
    korva::host::setNetworkConfig(std::nullopt);
    EXPECT_EQ(QX_GatewayCfgBus_GetAccessProtocol(), nullptr);

    korva::host::setUserConfig(true, "KORVA Gateway");
    korva::host::setNetworkConfig(QXConfigMgr::NetworkPorts{});
}
