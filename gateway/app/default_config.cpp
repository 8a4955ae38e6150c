#include "gateway/app/gateway_config.h"
#include "gateway/hostlib/json_text.h"

namespace korva::gateway {

namespace {

// The configuration used without --config; @PASSWORD@ is replaced by the start's password (a
// JSON string).
// httpsEnabled and httpsPort are left out: they follow the HTTPS listener (--tls-listen).
constexpr const char* kDefaultConfig = R"({
  "listen": "127.0.0.1:8080",
  "adminListen": "127.0.0.1:8081",
  "realm": "KORVA Gateway",
  "activated": true,
  "logLevel": 4,
  "auth": { "algorithm": "MD5", "maxAttempts": 5, "lockSeconds": 180, "nonceLifetimeSeconds": 300 },
  "network": { "httpPort": 80, "rtspPort": 554, "portMapping": false,
               "extHttpPort": 8080, "extHttpsPort": 8443, "extRtspPort": 8554 },
  "users": [ { "name": "admin", "password": @PASSWORD@, "device": "cam-1" } ],
  "devices": [ { "devIndex": "cam-1", "attached": true } ]
})";

}  // namespace

GatewayConfig defaultConfig(const std::string& password) {
    std::string text = kDefaultConfig;
    const std::string marker = "@PASSWORD@";
    text.replace(text.find(marker), marker.size(),
                 korva::host::writeCompactJson(Json::Value(password)));
    return parseConfig(text, "(embedded default)", "");
}

}  // namespace korva::gateway
