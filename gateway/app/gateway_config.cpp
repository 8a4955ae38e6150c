#include "gateway/app/gateway_config.h"

#include <boost/asio/ip/address.hpp>
#include <fstream>
#include <set>
#include <sstream>

#include "gateway/sim/json_util.h"

namespace korva::gateway {

namespace {

constexpr std::size_t kMaxDevIndex = 38;  // the digest check's device field holds 38 + NUL

// Reads members of one JSON object, naming each in errors by its path from the root.
class Reader {
  public:
    Reader(const std::string& source, const Json::Value& object, std::string path)
        : m_source(source), m_object(object), m_path(std::move(path)) {}

    [[noreturn]] void fail(const std::string& name, const std::string& problem) const {
        throw ConfigError(m_source + ": " + field(name) + ": " + problem);
    }
    std::string field(const std::string& name) const {
        return m_path.empty() ? name : m_path + "." + name;
    }
    bool has(const char* name) const { return m_object.isMember(name); }
    const Json::Value& value(const char* name) const { return m_object[name]; }

    void allowOnly(std::initializer_list<const char*> names) const {
        for (const auto& name : m_object.getMemberNames()) {
            bool known = false;
            for (const char* allowed : names) known = known || name == allowed;
            if (!known) fail(name, "unknown member");
        }
    }
    std::string text(const char* name, const std::string& fallback, bool allowEmpty = false) const {
        if (!has(name)) return fallback;
        if (!value(name).isString()) fail(name, "must be a string");
        const std::string result = value(name).asString();
        if (result.empty() && !allowEmpty) fail(name, "must not be empty");
        return result;
    }
    bool flag(const char* name, bool fallback) const {
        if (!has(name)) return fallback;
        if (!value(name).isBool()) fail(name, "must be true or false");
        return value(name).asBool();
    }
    int integer(const char* name, int fallback, int min, int max) const {
        if (!has(name)) return fallback;
        const Json::Value& v = value(name);
        if (!v.isInt() || (v.isDouble() && !v.isIntegral())) fail(name, "must be an integer");
        if (v.asInt() < min || v.asInt() > max) {
            fail(name, "must be within " + std::to_string(min) + ".." + std::to_string(max) +
                           " (got " + std::to_string(v.asInt()) + ")");
        }
        return v.asInt();
    }
    Reader object(const char* name) const {
        if (!value(name).isObject()) fail(name, "must be an object");
        return Reader(m_source, value(name), field(name));
    }

  private:
    const std::string& m_source;
    const Json::Value& m_object;
    std::string m_path;
};

std::string resolvePath(const std::string& baseDir, const std::string& path) {
    if (path.empty() || path.front() == '/' || baseDir.empty()) return path;
    return baseDir + "/" + path;
}

std::string directoryOf(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool readFile(const std::string& path, std::string* out) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::ostringstream buffer;
    buffer << in.rdbuf();
    if (in.bad()) return false;
    *out = buffer.str();
    return true;
}

ListenAddress readListen(const Reader& reader, const char* name, const ListenAddress& fallback) {
    if (!reader.has(name)) return fallback;
    ListenAddress address;
    std::string problem;
    if (!parseListenAddress(reader.text(name, ""), &address, &problem)) reader.fail(name, problem);
    return address;
}

korva::host::AuthSettings readAuth(const Reader& root) {
    korva::host::AuthSettings auth;
    if (!root.has("auth")) return auth;
    const Reader reader = root.object("auth");
    reader.allowOnly({"algorithm", "maxAttempts", "lockSeconds", "nonceLifetimeSeconds"});
    const std::string algorithm = reader.text("algorithm", "MD5");
    if (algorithm == "MD5") {
        auth.algorithm = korva::host::DigestAlgorithm::kMd5;
    } else if (algorithm == "SHA-256") {
        auth.algorithm = korva::host::DigestAlgorithm::kSha256;
    } else {
        reader.fail("algorithm", "unknown algorithm \"" + algorithm + "\" (use MD5 or SHA-256)");
    }
    auth.maxAttempts = reader.integer("maxAttempts", auth.maxAttempts, 1, 1000);
    auth.lockSeconds = reader.integer("lockSeconds", auth.lockSeconds, 1, 86400);
    auth.nonceLifetimeSeconds =
        reader.integer("nonceLifetimeSeconds", auth.nonceLifetimeSeconds, 1, 86400);
    return auth;
}

std::optional<QXConfigMgr::NetworkPorts> readNetwork(const Reader& root) {
    if (!root.has("network")) return QXConfigMgr::NetworkPorts{};
    if (root.value("network").isNull()) return std::nullopt;  // the gateway has no network config
    const Reader reader = root.object("network");
    reader.allowOnly({"httpPort", "httpsPort", "rtspPort", "httpsEnabled", "portMapping",
                      "extHttpPort", "extHttpsPort", "extRtspPort"});
    QXConfigMgr::NetworkPorts ports;
    auto port = [&](const char* name, uint16_t fallback) {
        return static_cast<uint16_t>(reader.integer(name, fallback, 1, 65535));
    };
    ports.httpPort = port("httpPort", ports.httpPort);
    ports.httpsPort = port("httpsPort", ports.httpsPort);
    ports.rtspPort = port("rtspPort", ports.rtspPort);
    ports.httpsEnabled = reader.flag("httpsEnabled", ports.httpsEnabled);
    ports.portMapping = reader.flag("portMapping", ports.portMapping);
    ports.extHttpPort = port("extHttpPort", ports.extHttpPort);
    ports.extHttpsPort = port("extHttpsPort", ports.extHttpsPort);
    ports.extRtspPort = port("extRtspPort", ports.extRtspPort);
    return ports;
}

void readLimits(const Reader& root, GatewayConfig* config) {
    if (!root.has("limits")) return;
    const Reader reader = root.object("limits");
    reader.allowOnly({"ioThreads", "maxHeaderBytes", "maxBodyBytes", "idleTimeoutMs",
                      "writeTimeoutMs", "streamWriteWaitMs", "maxConnections",
                      "maxRelaysPerDevice", "maxRelaysPerClient", "maxRelays"});
    ServerLimits& limits = config->limits;
    config->ioThreads = reader.integer("ioThreads", 0, 0, 256);
    limits.maxHeaderBytes = static_cast<std::size_t>(
        reader.integer("maxHeaderBytes", static_cast<int>(limits.maxHeaderBytes), 1024, 1 << 20));
    limits.maxBodyBytes = static_cast<std::size_t>(
        reader.integer("maxBodyBytes", static_cast<int>(limits.maxBodyBytes), 1024, 64 << 20));
    limits.idleTimeout = std::chrono::milliseconds(reader.integer(
        "idleTimeoutMs", static_cast<int>(limits.idleTimeout.count()), 100, 3600000));
    limits.writeTimeout = std::chrono::milliseconds(reader.integer(
        "writeTimeoutMs", static_cast<int>(limits.writeTimeout.count()), 100, 3600000));
    limits.streamWriteWait = std::chrono::milliseconds(reader.integer(
        "streamWriteWaitMs", static_cast<int>(limits.streamWriteWait.count()), 10, 600000));
    limits.maxConnections = static_cast<std::size_t>(
        reader.integer("maxConnections", static_cast<int>(limits.maxConnections), 1, 1000000));
    korva::host::RelayLimits& relays = config->relayLimits;
    relays.maxPerDevice = reader.integer("maxRelaysPerDevice", relays.maxPerDevice, 1, 100000);
    relays.maxPerClient = reader.integer("maxRelaysPerClient", relays.maxPerClient, 1, 100000);
    relays.maxTotal = reader.integer("maxRelays", relays.maxTotal, 1, 100000);
}

bool validDevIndex(const std::string& devIndex) {
    if (devIndex.empty() || devIndex.size() > kMaxDevIndex) return false;
    for (char c : devIndex) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                        (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.';
        if (!ok) return false;
    }
    return true;
}

sim::DeviceProfile readProfile(const Reader& device, const std::string& baseDir) {
    const std::string path = resolvePath(baseDir, device.text("profile", ""));
    std::string text;
    if (!readFile(path, &text)) device.fail("profile", "cannot read profile file " + path);
    Json::Value root;
    if (!sim::parseJson(text, &root)) {
        device.fail("profile", "profile file " + path + " is not valid JSON");
    }
    try {
        return sim::parseProfile(root);
    } catch (const sim::ProfileError& error) {
        throw ConfigError(path + ": " + error.field() + ": " + error.what() + " (profile of " +
                          device.field("profile") + ")");
    }
}

void readDevices(const Reader& root, const std::string& baseDir, GatewayConfig* config) {
    if (!root.has("devices")) return;
    const Json::Value& list = root.value("devices");
    if (!list.isArray()) root.fail("devices", "must be an array");
    std::set<std::string> seen;
    for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
        const std::string path = "devices[" + std::to_string(i) + "]";
        if (!list[i].isObject()) root.fail(path, "must be an object");
        const Reader device(config->source, list[i], path);
        device.allowOnly({"devIndex", "profile", "attached"});
        if (!device.has("devIndex")) device.fail("devIndex", "is required");
        DeviceConfig entry;
        entry.devIndex = device.text("devIndex", "");
        if (!validDevIndex(entry.devIndex)) {
            device.fail("devIndex", "must be 1 to 38 characters of letters, digits, '-', '_', '.'");
        }
        if (!seen.insert(entry.devIndex).second) {
            device.fail("devIndex", "duplicate device \"" + entry.devIndex + "\"");
        }
        if (device.has("profile")) entry.profile = readProfile(device, baseDir);
        entry.attached = device.flag("attached", true);
        config->devices.push_back(std::move(entry));
    }
}

void readUsers(const Reader& root, GatewayConfig* config) {
    if (!root.has("users")) return;
    const Json::Value& list = root.value("users");
    if (!list.isArray()) root.fail("users", "must be an array");
    std::set<std::string> seen;
    for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
        const std::string path = "users[" + std::to_string(i) + "]";
        if (!list[i].isObject()) root.fail(path, "must be an object");
        const Reader user(config->source, list[i], path);
        user.allowOnly({"name", "password", "device"});
        for (const char* required : {"name", "password", "device"}) {
            if (!user.has(required)) user.fail(required, "is required");
        }
        korva::host::Account account{user.text("name", ""), user.text("password", ""),
                                     user.text("device", "")};
        if (account.name.find_first_of(":\"\r\n") != std::string::npos) {
            user.fail("name", "must not contain ':', '\"' or line breaks");
        }
        if (!seen.insert(account.name).second) {
            user.fail("name", "duplicate user \"" + account.name + "\"");
        }
        bool known = false;
        for (const auto& device : config->devices)
            known = known || device.devIndex == account.devIndex;
        if (!known) user.fail("device", "unknown device \"" + account.devIndex + "\"");
        config->users.push_back(std::move(account));
    }
}

}  // namespace

bool parseListenAddress(const std::string& text, ListenAddress* out, std::string* problem) {
    const auto colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 == text.size()) {
        *problem = "must be HOST:PORT (got \"" + text + "\")";
        return false;
    }
    std::string host = text.substr(0, colon);
    const std::string port = text.substr(colon + 1);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    }
    if (host == "localhost") host = "127.0.0.1";
    boost::system::error_code ec;
    boost::asio::ip::make_address(host, ec);
    if (ec) {
        *problem = "\"" + host + "\" is not an IP address";
        return false;
    }
    if (port.size() > 5 || port.find_first_not_of("0123456789") != std::string::npos ||
        std::stoi(port) > 65535) {
        *problem = "port \"" + port + "\" must be a number within 0..65535";
        return false;
    }
    out->host = host;
    out->port = static_cast<unsigned short>(std::stoi(port));
    return true;
}

GatewayConfig parseConfig(const std::string& text, const std::string& source,
                          const std::string& baseDir) {
    Json::Value root;
    if (!sim::parseJson(text, &root)) throw ConfigError(source + ": (document): not valid JSON");
    if (!root.isObject()) throw ConfigError(source + ": (document): must be a JSON object");
    GatewayConfig config;
    config.source = source;
    const Reader reader(config.source, root, "");
    reader.allowOnly({"listen", "adminListen", "plugin", "realm", "activated", "logLevel", "auth",
                      "network", "users", "devices", "limits"});
    config.listen = readListen(reader, "listen", config.listen);
    config.adminListen = readListen(reader, "adminListen", config.adminListen);
    if (reader.has("plugin")) config.pluginPath = resolvePath(baseDir, reader.text("plugin", ""));
    config.realm = reader.text("realm", config.realm);
    if (config.realm.size() > 128 || config.realm.find_first_of("\"\\\r\n") != std::string::npos) {
        reader.fail("realm", "must be at most 128 characters without '\"', '\\' or line breaks");
    }
    config.activated = reader.flag("activated", config.activated);
    config.logLevel = reader.integer("logLevel", config.logLevel, 1, 5);
    config.auth = readAuth(reader);
    config.network = readNetwork(reader);
    readLimits(reader, &config);
    readDevices(reader, baseDir, &config);
    readUsers(reader, &config);
    return config;
}

GatewayConfig loadConfigFile(const std::string& path) {
    std::string text;
    if (!readFile(path, &text)) throw ConfigError(path + ": cannot read the file");
    return parseConfig(text, path, directoryOf(path));
}

}  // namespace korva::gateway
