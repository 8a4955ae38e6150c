#include "gateway/app/gateway_config.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/asio/ip/address.hpp>
#include <cerrno>
#include <cstring>
#include <set>

#include "gateway/hostlib/json_text.h"
#include "gateway/server/admin_access.h"

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
            if (!known) fail(name.empty() ? "\"\"" : name, "unknown member");  // name the empty one
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

const char* fileKind(mode_t mode) {
    if (S_ISDIR(mode)) return "a directory";
    if (S_ISFIFO(mode)) return "a FIFO";
    if (S_ISCHR(mode) || S_ISBLK(mode)) return "a device";
    if (S_ISSOCK(mode)) return "a socket";
    return "of another kind";
}

// Reads a regular file of at most kMaxDocumentBytes. Opened without blocking and checked with
// fstat before any read, so a FIFO or a device is refused at once. "" or the problem.
std::string readFile(const std::string& path, std::string* out) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return std::string("cannot open it: ") + std::strerror(errno);
    struct Closer {
        int fd;
        ~Closer() { ::close(fd); }
    } closer{fd};
    struct stat status {};
    if (::fstat(fd, &status) != 0) return std::string("cannot read it: ") + std::strerror(errno);
    if (!S_ISREG(status.st_mode))
        return std::string("is not a regular file (") + fileKind(status.st_mode) + ")";
    const std::string tooLarge = "is larger than " + std::to_string(kMaxDocumentBytes) + " bytes";
    if (static_cast<std::uintmax_t>(status.st_size) > kMaxDocumentBytes) return tooLarge;
    out->clear();
    char buffer[16384];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return std::string("cannot read it: ") + std::strerror(errno);
        if (n == 0) return "";
        if (out->size() + static_cast<std::size_t>(n) > kMaxDocumentBytes) return tooLarge;
        out->append(buffer, static_cast<std::size_t>(n));
    }
}

bool hasControlCharacter(const std::string& text) {
    for (const char ch : text) {
        const auto c = static_cast<unsigned char>(ch);
        if (c < 0x20 || c == 0x7f) return true;
    }
    return false;
}

// The members whose values are passed on as they are (checked names, unchecked values).
using PayloadMembers = std::initializer_list<const char*>;

// Throws naming the first member name or string that holds a control character.
void refuseControlCharacters(const Json::Value& value, const std::string& path,
                             const std::string& source, const std::string& suffix,
                             PayloadMembers payload) {
    auto fail = [&](const std::string& where, const char* what) {
        throw ConfigError(source + ": " + (where.empty() ? "(document)" : where) + ": " + what +
                          " holds a control character (U+0000..U+001F or U+007F)" + suffix);
    };
    if (value.isString()) {
        if (hasControlCharacter(value.asString())) fail(path, "the string");
    } else if (value.isArray()) {
        for (Json::ArrayIndex i = 0; i < value.size(); ++i) {
            refuseControlCharacters(value[i], path + "[" + std::to_string(i) + "]", source, suffix,
                                    {});
        }
    } else if (value.isObject()) {
        bool isPayload = false;
        for (const char* name : payload) isPayload = isPayload || path == name;
        for (const auto& name : value.getMemberNames()) {
            if (hasControlCharacter(name)) fail(path, "a member name");
            if (isPayload) continue;
            refuseControlCharacters(value[name], path.empty() ? name : path + "." + name, source,
                                    suffix, payload);
        }
    }
}

// Parses one configuration or profile document within the limits; errors read
// "SOURCE: MEMBER: problem" + suffix.
Json::Value readDocument(const std::string& text, const std::string& source,
                         const std::string& suffix, PayloadMembers payload) {
    korva::host::JsonLimits limits;
    limits.maxBytes = kMaxDocumentBytes;
    limits.maxDepth = kMaxDocumentDepth;
    limits.strictRoot = true;
    limits.rejectDupKeys = true;
    Json::Value root;
    korva::host::JsonProblem problem;
    if (!korva::host::parseJsonText(text, limits, &root, &problem)) {
        if (!problem.member.empty() && !hasControlCharacter(problem.member)) {
            const auto at = problem.problem.rfind(" (");
            const std::string where = at == std::string::npos ? "" : problem.problem.substr(at);
            throw ConfigError(source + ": " + problem.member + ": duplicate member" + where +
                              suffix);
        }
        throw ConfigError(source + ": (document): not valid JSON: " + problem.problem + suffix);
    }
    if (!root.isObject())
        throw ConfigError(source + ": (document): must be a JSON object" + suffix);
    refuseControlCharacters(root, "", source, suffix, payload);
    return root;
}

ListenAddress readListen(const Reader& reader, const char* name, const ListenAddress& fallback) {
    if (!reader.has(name)) return fallback;
    ListenAddress address;
    std::string problem;
    if (!parseListenAddress(reader.text(name, ""), &address, &problem)) reader.fail(name, problem);
    return address;
}

// Addresses or CIDR networks of proxies whose X-Forwarded-For names the client.
std::vector<korva::host::AddressRange> readTrustedProxies(const Reader& auth) {
    std::vector<korva::host::AddressRange> ranges;
    if (!auth.has("trustedProxies")) return ranges;
    const Json::Value& list = auth.value("trustedProxies");
    if (!list.isArray()) auth.fail("trustedProxies", "must be an array of IP addresses");
    for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
        const std::string name = "trustedProxies[" + std::to_string(i) + "]";
        if (!list[i].isString()) auth.fail(name, "must be a string");
        std::string problem;
        const auto range = korva::host::AddressRange::parse(list[i].asString(), &problem);
        if (!range) auth.fail(name, problem);
        ranges.push_back(*range);
    }
    return ranges;
}

korva::host::AuthSettings readAuth(const Reader& root) {
    korva::host::AuthSettings auth;
    if (!root.has("auth")) return auth;
    const Reader reader = root.object("auth");
    reader.allowOnly(
        {"algorithm", "maxAttempts", "lockSeconds", "nonceLifetimeSeconds", "trustedProxies"});
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
    auth.trustedProxies = readTrustedProxies(reader);
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
                      "writeTimeoutMs", "streamWriteWaitMs", "maxStreamQueueBytes",
                      "maxConnections", "maxConnectionsPerClient", "maxTargetBytes",
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
    limits.maxStreamQueueBytes = static_cast<std::size_t>(reader.integer(
        "maxStreamQueueBytes", static_cast<int>(limits.maxStreamQueueBytes), 4096, 1 << 30));
    limits.maxConnections = static_cast<std::size_t>(
        reader.integer("maxConnections", static_cast<int>(limits.maxConnections), 1, 1000000));
    limits.maxConnectionsPerClient = static_cast<std::size_t>(reader.integer(
        "maxConnectionsPerClient", static_cast<int>(limits.maxConnectionsPerClient), 1, 1000000));
    limits.maxTargetBytes = static_cast<std::size_t>(
        reader.integer("maxTargetBytes", static_cast<int>(limits.maxTargetBytes), 256, 1 << 20));
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
    const std::string suffix = " (profile of " + device.field("profile") + ")";
    std::string text;
    if (const std::string problem = readFile(path, &text); !problem.empty()) {
        if (problem.rfind("cannot", 0) == 0) {
            device.fail("profile", "cannot read profile file " + path + ": " + problem);
        }
        throw ConfigError(path + ": (document): " + problem + suffix);
    }
    const Json::Value root = readDocument(text, path, suffix, {"resources", "raw"});
    try {
        return sim::parseProfile(root);
    } catch (const sim::ProfileError& error) {
        throw ConfigError(path + ": " + error.field() + ": " + error.what() + suffix);
    }
}

void readTls(const Reader& root, const std::string& baseDir, GatewayConfig* config) {
    if (!baseDir.empty()) config->tls.generatedDirectory = baseDir;
    if (!root.has("tls")) return;
    const Reader reader = root.object("tls");
    reader.allowOnly({"listen", "certificateFile", "privateKeyFile"});
    if (reader.has("listen")) config->tls.listen = readListen(reader, "listen", {});
    const std::string certificate = reader.text("certificateFile", "", true);
    const std::string key = reader.text("privateKeyFile", "", true);
    if (certificate.empty() != key.empty()) {
        reader.fail(certificate.empty() ? "certificateFile" : "privateKeyFile",
                    "must be given together with tls." +
                        std::string(certificate.empty() ? "privateKeyFile" : "certificateFile") +
                        " (leave both empty for a self-signed certificate)");
    }
    config->tls.certificateFile = resolvePath(baseDir, certificate);
    config->tls.privateKeyFile = resolvePath(baseDir, key);
}

std::string readAdminToken(const Reader& root) {
    if (!root.has("admin")) return "";
    const Reader reader = root.object("admin");
    reader.allowOnly({"token"});
    const std::string token = reader.text("token", "", true);
    const bool wellFormed = token.find_first_not_of(
                                "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                "0123456789-._~+/") == std::string::npos;
    if (!token.empty() && (token.size() < 16 || token.size() > 256 || !wellFormed)) {
        reader.fail("token", "must be empty or 16 to 256 characters of letters, digits and -._~+/");
    }
    return token;
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

namespace {

GatewayConfig readConfig(const std::string& text, const std::string& source,
                         const std::string& baseDir) {
    const Json::Value root = readDocument(text, source, "", {});
    GatewayConfig config;
    config.source = source;
    const Reader reader(config.source, root, "");
    reader.allowOnly({"listen", "adminListen", "plugin", "realm", "activated", "logLevel", "auth",
                      "network", "users", "devices", "limits", "admin", "tls"});
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
    config.adminToken = readAdminToken(reader);
    config.network = readNetwork(reader);
    if (config.network && reader.has("network")) {
        config.httpsEnabledGiven = reader.value("network").isMember("httpsEnabled");
        config.httpsPortGiven = reader.value("network").isMember("httpsPort");
    }
    readTls(reader, baseDir, &config);
    readLimits(reader, &config);
    readDevices(reader, baseDir, &config);
    readUsers(reader, &config);
    return config;
}

}  // namespace

GatewayConfig parseConfig(const std::string& text, const std::string& source,
                          const std::string& baseDir) {
    try {
        return readConfig(text, source, baseDir);
    } catch (const ConfigError&) {
        throw;
    } catch (const std::exception& error) {  // the boundary: every failure is a ConfigError
        throw ConfigError(source + ": (document): cannot be read: " + error.what());
    }
}

GatewayConfig loadConfigFile(const std::string& path) {
    std::string text;
    if (const std::string problem = readFile(path, &text); !problem.empty()) {
        throw ConfigError(path + ": (document): " + problem);
    }
    return parseConfig(text, path, directoryOf(path));
}

std::optional<QXConfigMgr::NetworkPorts> effectiveNetwork(const GatewayConfig& config,
                                                          unsigned short tlsPort) {
    auto network = config.network;
    if (!network) return network;
    if (!config.httpsEnabledGiven) network->httpsEnabled = tlsPort != 0;
    if (!config.httpsPortGiven && tlsPort != 0) network->httpsPort = tlsPort;
    return network;
}

std::string readSmallFile(const std::string& path, std::string* out) {
    return readFile(path, out);
}

void checkCombination(const GatewayConfig& config, const std::string& source) {
    if (config.adminToken.empty() && !AdminAccess::isLoopback(config.adminListen.host)) {
        throw ConfigError(source + ": " + config.adminListen.host +
                          " is not a loopback address: set admin.token (every admin call then "
                          "needs it)");
    }
}

}  // namespace korva::gateway
