// The configuration file, the embedded default and the command line.
#include <gtest/gtest.h>

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

TEST(GatewayConfig, ErrorsNameFileFieldAndProblem) {
    const std::pair<const char*, const char*> cases[] = {
        {"[", "f.json: (document): not valid JSON"},
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
        {R"({"port": 1})", "f.json: port: unknown member"},
    };
    for (const auto& [text, expected] : cases) {
        try {
            parseConfig(text, "f.json", "/nonexistent-dir");
            ADD_FAILURE() << "accepted " << text;
        } catch (const ConfigError& error) {
            EXPECT_EQ(std::string(error.what()).rfind(expected, 0), 0u)
                << text << "\n  gave: " << error.what();
        }
    }
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

}  // namespace
}  // namespace korva::gateway
