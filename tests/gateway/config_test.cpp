// The configuration file, the embedded default and the command line.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <tuple>

#include "gateway/app/command_line.h"
#include "gateway/app/gateway_config.h"

namespace korva::gateway {
namespace {

const char* kValid = R"({
  "listen": "0.0.0.0:9000", "adminListen": "[::1]:0", "plugin": "lib/plugin.so",
  "realm": "Site", "activated": false, "logLevel": 5,
  "auth": {"algorithm": "SHA-256", "maxAttempts": 2, "lockSeconds": 5, "nonceLifetimeSeconds": 60,
           "trustedProxies": ["10.0.0.0/8", "::1"]},
  "network": {"httpPort": 81, "portMapping": true, "extHttpPort": 9081},
  "users": [{"name": "u1", "password": "p1", "device": "d1"},
            {"name": "u2", "password": "p2", "device": "d1"}],
  "devices": [{"devIndex": "d1"}, {"devIndex": "d2", "attached": false}],
  "limits": {"ioThreads": 3, "idleTimeoutMs": 500}
})";

TEST(GatewayConfig, ReadsEveryMember) {
    const GatewayConfig config = parseConfig(kValid, "site.json", "/etc/korva");
    EXPECT_EQ(config.listen.port, 9000);
    EXPECT_EQ(config.adminListen.host, "::1");
    EXPECT_EQ(config.pluginPath, "/etc/korva/lib/plugin.so");
    EXPECT_FALSE(config.activated);
    EXPECT_EQ(config.auth.algorithm, korva::host::DigestAlgorithm::kSha256);
    EXPECT_EQ(config.auth.lockSeconds, 5);
    ASSERT_EQ(config.auth.trustedProxies.size(), 2u);
    EXPECT_EQ(config.auth.trustedProxies[0].prefixLength, 8);
    ASSERT_TRUE(config.network.has_value());
    EXPECT_EQ(config.network->httpPort, 81);
    EXPECT_EQ(config.network->httpsPort, 443);  // default kept
    EXPECT_TRUE(config.network->portMapping);
    EXPECT_EQ(config.network->extHttpPort, 9081);
    ASSERT_EQ(config.devices.size(), 2u);
    EXPECT_FALSE(config.devices[1].attached);
    EXPECT_EQ(config.ioThreads, 3);
    EXPECT_EQ(config.limits.idleTimeout, std::chrono::milliseconds(500));
}

TEST(GatewayConfig, NullNetworkMeansNone) {
    EXPECT_FALSE(parseConfig(R"({"network": null})", "f", "").network.has_value());
    EXPECT_TRUE(parseConfig("{}", "f", "").network.has_value());
}

// httpsEnabled and httpsPort follow the TLS listener unless the file gives them.
TEST(GatewayConfig, HttpsMembersFollowTheTlsListenerUnlessGiven) {
    const struct {
        const char* network;
        unsigned short tlsPort;
        bool enabled;
        int port;
    } cases[] = {
        {"{}", 0, false, 443},
        {"{}", 8443, true, 8443},
        {R"({"httpsEnabled": true})", 0, true, 443},
        {R"({"httpsPort": 9443})", 8443, true, 9443},
        {R"({"httpsEnabled": false, "httpsPort": 1})", 8443, false, 1},
    };
    for (const auto& c : cases) {
        const auto config = parseConfig(std::string(R"({"network": )") + c.network + "}", "f", "");
        const auto network = effectiveNetwork(config, c.tlsPort);
        ASSERT_TRUE(network.has_value());
        EXPECT_EQ(network->httpsEnabled, c.enabled) << c.network << " " << c.tlsPort;
        EXPECT_EQ(network->httpsPort, c.port) << c.network << " " << c.tlsPort;
    }
    EXPECT_FALSE(effectiveNetwork(parseConfig(R"({"network": null})", "f", ""), 8443));
}

std::string nested(int depth) {
    return R"({"x": )" + std::string(static_cast<std::size_t>(depth - 1), '[') + "1" +
           std::string(static_cast<std::size_t>(depth - 1), ']') + "}";
}

TEST(GatewayConfig, ErrorsNameFileFieldAndProblem) {
    const std::pair<std::string, const char*> cases[] = {
        {"[", "f.json: (document): not valid JSON"},
        {"{} {}", "f.json: (document): not valid JSON"},
        {nested(65), "f.json: (document): not valid JSON: nested deeper than 64 levels"},
        {nested(64), "f.json: x: unknown member"},  // 64 levels pass the depth limit
        {std::string(2000, '['), "f.json: (document): not valid JSON: nested deeper than 64"},
        {R"({"realm": ")" + std::string(kMaxDocumentBytes, 'a') + "\"}",
         "f.json: (document): not valid JSON: larger than 1048576 bytes"},
        {R"({"realm": "a", "realm": "b"})", "f.json: realm: duplicate member (line 1, column 16)"},
        {R"({"auth": {"lockSeconds": 5, "lockSeconds": 6}})", "f.json: lockSeconds: duplicate"},
        {R"({"realm": "a\u0000b"})", "f.json: realm: the string holds a control character"},
        {R"({"devices": [{"devIndex": "a"}], "users": [{"name": "u", "password": "p\u007f",
             "device": "a"}]})",
         "f.json: users[0].password: the string holds a control"},
        {"{\"auth\": {\"x\ty\": 1}}", "f.json: auth: a member name holds a control character"},
        {R"({"admin": {"token": "short"}})", "f.json: admin.token: must be empty or 16 to 256"},
        {R"({"admin": {"token": "0123456789abcdef 0"}})", "f.json: admin.token: must be empty"},
        {R"({"listen": "8080"})", "f.json: listen: must be HOST:PORT"},
        {R"({"listen": "host:80"})", "f.json: listen: \"host\" is not an IP address"},
        {R"({"listen": "127.0.0.1:65536"})", "f.json: listen: port \"65536\""},
        {R"({"realm": ""})", "f.json: realm: must not be empty"},
        {R"({"realm": "a\"b"})", "f.json: realm: must be at most 128"},
        {R"({"logLevel": 0})", "f.json: logLevel: must be within 1..5 (got 0)"},
        {R"({"logLevel": 2.5})", "f.json: logLevel: must be an integer"},
        {R"({"auth": {"algorithm": "md5"}})", "f.json: auth.algorithm: unknown algorithm \"md5\""},
        {R"({"auth": {"trustedProxies": ["10.0.0.0/33"]}})",
         "f.json: auth.trustedProxies[0]: \"10.0.0.0/33\" has no valid prefix length"},
        {R"({"auth": {"trustedProxies": "10.0.0.1"}})",
         "f.json: auth.trustedProxies: must be an array"},
        {R"({"devices": [{}]})", "f.json: devices[0].devIndex: is required"},
        {R"({"devices": [{"devIndex": "a b"}]})", "f.json: devices[0].devIndex: must be 1 to 38"},
        {R"({"devices": [{"devIndex": "a"}, {"devIndex": "a"}]})",
         "f.json: devices[1].devIndex: duplicate device \"a\""},
        {R"({"devices": [{"devIndex": "a", "profile": "nope.json"}]})",
         "f.json: devices[0].profile: cannot read profile file /nonexistent-dir/nope.json"},
        {R"({"devices": [{"devIndex": "a"}], "users": [{"name": "u", "password": "p"}]})",
         "f.json: users[0].device: is required"},
        {R"({"devices": [{"devIndex": "a"}], "users": [{"name": "u:x", "password": "p", "device": "a"}]})",
         "f.json: users[0].name: must not contain"},
        {R"({"devices": [{"devIndex": "a"}], "users": [{"name": "u", "password": "p", "device": "a"},
                                                       {"name": "u", "password": "q", "device": "a"}]})",
         "f.json: users[1].name: duplicate user \"u\""},
        {R"({"users": [{"name": "u", "password": "", "device": "a"}]})",
         "f.json: users[0].password: must not be empty"},
        {R"({"tls": {"listen": ""}})", "f.json: tls.listen: must not be empty"},
        {R"({"tls": {"certificateFile": "c.pem"}})",
         "f.json: tls.privateKeyFile: must be given together with tls.certificateFile"},
        {R"({"port": 1})", "f.json: port: unknown member"},
        {R"({"": 1})", "f.json: \"\": unknown member"},
    };
    for (const auto& [text, expected] : cases) {
        try {
            parseConfig(text, "f.json", "/nonexistent-dir");
            ADD_FAILURE() << "accepted " << text;
        } catch (const ConfigError& error) {
            EXPECT_EQ(std::string(error.what()).rfind(expected, 0), 0u)
                << text.substr(0, 200) << "\n  gave: " << error.what();
        }
    }
}

// A directory with files, removed at the end.
class TempDir {
  public:
    TempDir() {
        char name[] = "/tmp/korva-config-XXXXXX";
        m_path = mkdtemp(name);
    }
    ~TempDir() { std::system(("rm -rf " + m_path).c_str()); }
    std::string write(const std::string& name, const std::string& text) const {
        std::ofstream(m_path + "/" + name, std::ios::binary) << text;
        return m_path + "/" + name;
    }
    const std::string& path() const { return m_path; }

  private:
    std::string m_path;
};

// Files are read without blocking and within the size cap; profiles follow the same rules and
// errors name the profile file.
TEST(GatewayConfig, RefusesFilesThatAreNotSmallRegularJsonDocuments) {
    const TempDir dir;
    ASSERT_EQ(mkfifo((dir.path() + "/fifo").c_str(), 0600), 0);
    const std::string big = dir.write("big.json", "");
    ASSERT_EQ(truncate(big.c_str(), kMaxDocumentBytes + 1), 0);
    auto device = [&](const std::string& profile) {
        return dir.write("c-" + profile,
                         R"({"devices": [{"devIndex": "d", "profile": ")" + profile + R"("}]})");
    };
    dir.write("dup.json", R"({"latencyMs": 1, "latencyMs": 2})");
    dir.write("ctl.json", R"({"silent": ["GET /a\u001b"]})");
    const std::pair<std::string, std::string> cases[] = {
        {dir.path() + "/fifo", dir.path() + "/fifo: (document): is not a regular file (a FIFO)"},
        {"/dev/zero", "/dev/zero: (document): is not a regular file (a device)"},
        {dir.path(), dir.path() + ": (document): is not a regular file (a directory)"},
        {big, big + ": (document): is larger than 1048576 bytes"},
        {dir.path() + "/none.json", dir.path() + "/none.json: (document): cannot open it"},
        {device("fifo"), dir.path() + "/fifo: (document): is not a regular file (a FIFO) (profile "
                                      "of devices[0].profile)"},
        {device("dup.json"), dir.path() + "/dup.json: latencyMs: duplicate member"},
        {device("ctl.json"), dir.path() + "/ctl.json: silent[0]: the string holds a control"},
    };
    for (const auto& [path, expected] : cases) {
        try {
            loadConfigFile(path);
            ADD_FAILURE() << "accepted " << path;
        } catch (const ConfigError& error) {
            EXPECT_EQ(std::string(error.what()).rfind(expected, 0), 0u) << error.what();
        }
    }
    // Device answers in a profile are passed on as they are, control characters included.
    dir.write("answers.json", R"({"raw": {"GET /a": "x\u0000"}, "resources": {"GET /b": "\n"}})");
    EXPECT_EQ(loadConfigFile(device("answers.json")).devices[0].profile->raw.at("GET /a"),
              std::string("x\0", 2));
}

// The startup test shows the default's user and camera working; it overrides the addresses.
TEST(GatewayConfig, EmbeddedDefaultListensOnTheDocumentedPortsAndKeepsThePassword) {
    const GatewayConfig config = defaultConfig("pa\"ss");
    EXPECT_EQ(config.listen.port, 8080);
    EXPECT_EQ(config.adminListen.port, 8081);
    ASSERT_EQ(config.users.size(), 1u);
    EXPECT_EQ(config.users[0].password, "pa\"ss");
}

TEST(CommandLine, FlagsOverrideTheFile) {
    const char* argv[] = {
        "korva-gateway", "--config", "c.json", "--listen=127.0.0.1:0", "--admin-listen",
        "localhost:9",   "--plugin", "/p.so",  "--log-level",          "1"};
    const CommandLine line = parseCommandLine(10, argv);
    EXPECT_EQ(line.config, "c.json");
    GatewayConfig config = defaultConfig("x");
    applyFlags(line, &config);
    EXPECT_EQ(config.listen.port, 0);
    EXPECT_EQ(config.adminListen.host, "127.0.0.1");
    EXPECT_EQ(config.adminListen.port, 9);
    EXPECT_EQ(config.pluginPath, "/p.so");
    EXPECT_EQ(config.logLevel, 1);
}

TEST(CommandLine, RefusesUnknownAndIncompleteFlags) {
    const char* unknown[] = {"korva-gateway", "--port", "1"};
    EXPECT_THROW(parseCommandLine(3, unknown), UsageError);
    const char* missing[] = {"korva-gateway", "--listen"};
    EXPECT_THROW(parseCommandLine(2, missing), UsageError);
    for (const char* level : {"0", "6", "x", "33"}) {
        CommandLine line;
        line.logLevel = level;
        GatewayConfig config;
        EXPECT_THROW(applyFlags(line, &config), ConfigError) << level;
    }
}

TEST(CommandLine, AdminAddressBeyondLoopbackNeedsTheToken) {
    const char* token = R"(, "admin": {"token": "0123456789abcdef"})";
    for (const auto& [file, flag, tokenSet, expected] :
         std::initializer_list<std::tuple<const char*, const char*, bool, const char*>>{
             {"127.0.0.1:1", nullptr, false, nullptr},
             {"[::1]:1", nullptr, false, nullptr},
             {"0.0.0.0:1", nullptr, false, "f.json: adminListen: 0.0.0.0 is not a loopback"},
             {"127.0.0.1:1", "0.0.0.0:0", false, "--admin-listen: 0.0.0.0 is not a loopback"},
             {"127.0.0.1:1", "[::]:0", false, "--admin-listen: :: is not a loopback"},
             {"0.0.0.0:1", "127.0.0.1:0", false, nullptr},
             {"0.0.0.0:1", "192.0.2.1:0", true, nullptr},
         }) {
        GatewayConfig config = parseConfig(
            std::string(R"({"adminListen": ")") + file + "\"" + (tokenSet ? token : "") + "}",
            "f.json", "");
        CommandLine line;
        if (flag) line.adminListen = flag;
        if (expected == nullptr) {
            EXPECT_NO_THROW(applyFlags(line, &config)) << file << " " << (flag ? flag : "");
            continue;
        }
        try {
            applyFlags(line, &config);
            ADD_FAILURE() << "accepted " << file << " " << (flag ? flag : "");
        } catch (const ConfigError& error) {
            EXPECT_EQ(std::string(error.what()).rfind(expected, 0), 0u) << error.what();
        }
    }
}

}  // namespace
}  // namespace korva::gateway
