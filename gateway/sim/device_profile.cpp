#include "gateway/sim/device_profile.h"

#include "gateway/sim/json_util.h"

namespace korva::sim {

namespace {

constexpr int kMaxLatencyMs = 600000;
constexpr const char* kMethods[] = {"GET", "PUT", "POST", "DELETE"};

void checkKey(const std::string& field, const std::string& key) {
    const auto space = key.find(' ');
    bool knownMethod = false;
    for (const char* method : kMethods) knownMethod = knownMethod || key.substr(0, space) == method;
    if (space == std::string::npos || !knownMethod || key.size() <= space + 1 ||
        key[space + 1] != '/' || key.find_first_of(" ?", space + 1) != std::string::npos) {
        throw ProfileError(field,
                           "must be \"METHOD PATH\" with GET, PUT, POST or DELETE and a "
                           "path starting with / and without query");
    }
}

int readInt(const Json::Value& value, const std::string& field, int min, int max) {
    if (!value.isInt()) throw ProfileError(field, "must be an integer");
    if (value.asInt() < min || value.asInt() > max) {
        throw ProfileError(field,
                           "must be within " + std::to_string(min) + ".." + std::to_string(max));
    }
    return value.asInt();
}

const Json::Value& objectMember(const Json::Value& root, const char* name) {
    const Json::Value& value = member(root, name);
    if (!value.isNull() && !value.isObject()) throw ProfileError(name, "must be an object");
    return value;
}

}  // namespace

DeviceProfile parseProfile(const Json::Value& root) {
    if (!root.isObject()) throw ProfileError("(document)", "must be a JSON object");
    for (const auto& name : root.getMemberNames()) {
        if (name != "latencyMs" && name != "resources" && name != "raw" && name != "silent" &&
            name != "alarms") {
            throw ProfileError(name.empty() ? "\"\"" : name, "unknown member");
        }
    }
    DeviceProfile profile;
    if (root.isMember("latencyMs")) {
        profile.latencyMs = readInt(root["latencyMs"], "latencyMs", 0, kMaxLatencyMs);
    }
    const Json::Value& resources = objectMember(root, "resources");
    for (const auto& key : resources.getMemberNames()) {
        checkKey("resources[\"" + key + "\"]", key);
        profile.resources[key] = writeJson(resources[key]);
    }
    const Json::Value& raw = objectMember(root, "raw");
    for (const auto& key : raw.getMemberNames()) {
        const std::string field = "raw[\"" + key + "\"]";
        checkKey(field, key);
        if (!raw[key].isString()) throw ProfileError(field, "must be a string");
        profile.raw[key] = raw[key].asString();
    }
    const Json::Value& silent = member(root, "silent");
    if (!silent.isNull() && !silent.isArray()) throw ProfileError("silent", "must be an array");
    for (Json::ArrayIndex i = 0; i < silent.size(); ++i) {
        const std::string field = "silent[" + std::to_string(i) + "]";
        if (!silent[i].isString()) throw ProfileError(field, "must be a string");
        checkKey(field, silent[i].asString());
        profile.silent.insert(silent[i].asString());
    }
    const Json::Value& alarms = objectMember(root, "alarms");
    for (const auto& name : alarms.getMemberNames()) {
        if (name != "intervalMs") {
            throw ProfileError("alarms." + (name.empty() ? "\"\"" : name), "unknown member");
        }
    }
    if (alarms.isMember("intervalMs")) {
        profile.alarmIntervalMs = readInt(alarms["intervalMs"], "alarms.intervalMs", 0, 86400000);
        if (profile.alarmIntervalMs > 0 && profile.alarmIntervalMs < 10) {
            throw ProfileError("alarms.intervalMs", "must be 0 (no alarms) or at least 10");
        }
    }
    return profile;
}

std::string requestKey(const korva::host::DeviceRequest& request) {
    const int method = request.method;
    const char* name = method >= 0 && method < 4 ? kMethods[method] : "OTHER";
    return std::string(name) + " " + request.path;
}

void ProfiledDevice::handle(const korva::host::DeviceRequest& request,
                            korva::host::DeviceReply reply) {
    const std::string key = requestKey(request);
    if (m_profile.silent.count(key) != 0) return;  // never answered: the bus timeout applies

    korva::host::DeviceReply answer = std::move(reply);
    if (m_profile.latencyMs > 0) {
        answer = [this, inner = std::move(answer)](std::string bytes) {
            m_scheduler.after(
                std::chrono::milliseconds(m_profile.latencyMs),
                [inner, bytes = std::move(bytes)]() mutable { inner(std::move(bytes)); });
        };
    }
    if (auto it = m_profile.resources.find(key); it != m_profile.resources.end()) {
        return answer(it->second);
    }
    if (auto it = m_profile.raw.find(key); it != m_profile.raw.end()) return answer(it->second);
    m_device->handle(request, std::move(answer));
}

}  // namespace korva::sim
