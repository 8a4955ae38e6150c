// The gateway's configuration: parsed from a JSON file (or the embedded default), every member
// checked, flags applied on top. Errors name the file, the member and the problem.
//
// Configuration and profile files must be regular files of at most kMaxDocumentBytes, JSON
// nested at most kMaxDocumentDepth deep, without duplicate members, and without control
// characters (U+0000..U+001F, U+007F) in any member name or string (a profile's `resources` and
// `raw` answers excepted: they are device answers, passed on as they are). Reading never blocks:
// a FIFO, a device or a directory is refused at once.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "gateway/hostlib/host_auth.h"
#include "gateway/hostlib/host_devices.h"
#include "gateway/server/gateway_server.h"
#include "gateway/server/server_limits.h"
#include "gateway/sim/device_profile.h"
#include "host/config_mgr.h"

namespace korva::gateway {

struct DeviceConfig {
    std::string devIndex;
    std::optional<sim::DeviceProfile> profile;  // none: the plain built-in camera
    bool attached = true;
};

// The KORVA listener over TLS.
struct TlsConfig {
    std::optional<ListenAddress> listen;  // TLS is on when set
    // PEM files (paths resolved); both "" for a self-signed certificate made at start and
    // written to generatedDirectory (the configuration file's folder, or the working directory
    // for the embedded default).
    std::string certificateFile;
    std::string privateKeyFile;
    std::string generatedDirectory = ".";
};

struct GatewayConfig {
    std::string source;  // the file name, or "(embedded default)"
    ListenAddress listen{"127.0.0.1", 8080};
    ListenAddress adminListen{"127.0.0.1", 8081};
    std::string pluginPath;  // absolute, or "" for the library next to the executable
    std::string realm = "KORVA Gateway";
    bool activated = true;
    int logLevel = 4;
    korva::host::AuthSettings auth;
    std::string adminToken;  // admin.token: "" for none; required off loopback
    std::optional<QXConfigMgr::NetworkPorts> network;
    // network.httpsEnabled / network.httpsPort were given; otherwise they follow the TLS listener.
    bool httpsEnabledGiven = false;
    bool httpsPortGiven = false;
    TlsConfig tls;
    std::vector<korva::host::Account> users;
    std::vector<DeviceConfig> devices;
    ServerLimits limits;
    korva::host::RelayLimits relayLimits;
    int ioThreads = 0;  // 0: one per processor, at least 2
};

// "FILE: FIELD: problem".
class ConfigError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

constexpr std::size_t kMaxDocumentBytes = 1 << 20;
constexpr int kMaxDocumentDepth = 64;

// Parses configuration text. `source` names it in errors; relative paths (plug-in, profiles)
// are taken relative to `baseDir`. Throws ConfigError.
GatewayConfig parseConfig(const std::string& text, const std::string& source,
                          const std::string& baseDir);
// Reads and parses a configuration file. Throws ConfigError.
GatewayConfig loadConfigFile(const std::string& path);

// Checks what depends on several members and flags together (the admin token off loopback);
// `source` names where the admin address came from. Called by applyFlags. Throws ConfigError.
void checkCombination(const GatewayConfig& config, const std::string& source);

// Parses "HOST:PORT" ("[v6]:PORT" for IPv6; "localhost" is 127.0.0.1); false when malformed.
bool parseListenAddress(const std::string& text, ListenAddress* out, std::string* problem);

// The network configuration the plug-in reads: `network`, where the file left httpsEnabled or
// httpsPort out, following the TLS listener really bound to `tlsPort` (0: TLS is off).
std::optional<QXConfigMgr::NetworkPorts> effectiveNetwork(const GatewayConfig& config,
                                                          unsigned short tlsPort);

// Reads a regular file of at most kMaxDocumentBytes without blocking (as configuration files
// are read); "" on success, else the problem ("cannot open it: ...", "is not a regular file ...").
std::string readSmallFile(const std::string& path, std::string* out);

// The embedded default: one user bound to one built-in camera, with the given password.
GatewayConfig defaultConfig(const std::string& password);

}  // namespace korva::gateway
