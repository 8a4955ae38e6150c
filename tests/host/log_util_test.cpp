// Logging, nonces, ISO time and the configuration snapshots.
#include <gtest/gtest.h>
#include <unistd.h>

#include <regex>
#include <set>
#include <string>
#include <vector>

#include "gateway/hostlib/host_control.h"
#include "host/config_mgr.h"
#include "host/host_util.h"
#include "host/qx_log.h"

TEST(Log, LevelThresholdFormattingAndLongLines) {
    std::vector<std::string> lines;
    korva::host::setLogSink([&](int level, const std::string& module, const std::string& text) {
        lines.push_back(std::to_string(level) + " " + module + " " + text);
    });
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
    dup2(saved, STDERR_FILENO);
    close(saved);
    std::string text(256, '\0');
    const ssize_t n = pread(fd, text.data(), text.size(), 0);
    close(fd);
    unlink(path);
    ASSERT_GT(n, 0);
    text.resize(static_cast<size_t>(n));
    EXPECT_TRUE(std::regex_match(
        text, std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d 4 \[QXW\] hello 7\n)")))
        << text;
}

TEST(HostUtil, NoncesAreFreshAndPrintableTimeIsIso8601) {
    std::set<std::string> seen;
    for (int i = 0; i < 200; ++i) {
        char buffer[64] = {};
        ASSERT_EQ(CreateNonce(buffer, sizeof buffer), 0);
        EXPECT_TRUE(std::regex_match(buffer, std::regex("[A-Za-z0-9_-]{1,63}"))) << buffer;
        EXPECT_TRUE(seen.insert(buffer).second);
    }
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
