#include "gateway/sim/camera_ptz.h"

#include "gateway/sim/device_error.h"
#include "gateway/sim/json_util.h"

namespace korva::sim {

namespace {

constexpr int kMaxSpeed = 100;
constexpr std::size_t kMaxPresetName = 32;

// Reads one speed of a continuous move; "" when acceptable.
std::string readSpeed(const Json::Value& data, const char* name, int* out) {
    const Json::Value& value = member(data, name);
    if (value.isNull()) return "";
    if (!value.isInt())
        return deviceStatus(kBadParameters, std::string(name) + " must be an integer");
    const int speed = value.asInt();
    if (speed < -kMaxSpeed || speed > kMaxSpeed) {
        return deviceStatus(kBeyondRangeLimit, std::string(name) + " must be within -100..100");
    }
    *out = speed;
    return "";
}

}  // namespace

CameraPtz::CameraPtz() {
    m_presets[1] = {"Entrance", true, {120, 10, 0}};
    m_presets[2] = {"Parking", true, {2400, -30, 20}};
}

Json::Value CameraPtz::channelList() const {
    Json::Value channel(Json::objectValue);
    channel["id"] = 1;
    channel["enabled"] = true;
    channel["serialNumber"] = 1;
    channel["videoInputID"] = 1;
    channel["panMaxSpeed"] = kMaxSpeed;
    channel["tiltMaxSpeed"] = kMaxSpeed;
    channel["presetSpeed"] = 4;
    channel["autoPatrolSpeed"] = 4;
    channel["keyBoardControlSpeed"] = 4;
    channel["controlProtocol"] = "PELCO-D";
    channel["controlAddress"]["enabled"] = true;
    channel["controlAddress"]["Address"] = "1";
    channel["defaultPresetID"] = "1";
    Json::Value& rs485 = channel["PTZRs485Para"];
    rs485["baudRate"] = 9600;
    rs485["dataBits"] = 8;
    rs485["parityType"] = "none";
    rs485["stopBits"] = "1";
    rs485["flowCtrl"] = "none";
    channel["manualControlSpeed"] = "compatible";

    Json::Value root(Json::objectValue);
    Json::Value entry(Json::objectValue);
    entry["PTZChannel"] = channel;
    root["PTZChannelList"].append(entry);
    return root;
}

std::string CameraPtz::move(const std::string& body) {
    Json::Value root;
    if (!parseJson(body, &root)) return deviceStatus(kBadJsonFormat, "body is not JSON");
    const Json::Value& data = member(root, "PTZData");
    if (!data.isObject()) return deviceStatus(kBadJsonContent, "PTZData holds no movement");
    Position velocity;
    for (auto [name, out] : {std::pair{"pan", &velocity.pan}, std::pair{"tilt", &velocity.tilt},
                             std::pair{"zoom", &velocity.zoom}}) {
        if (std::string error = readSpeed(data, name, out); !error.empty()) return error;
    }
    m_velocity = velocity;
    return deviceOk();
}

std::string CameraPtz::gotoPreset(int preset) {
    const auto it = m_presets.find(preset);
    if (it == m_presets.end()) {
        return deviceStatus(kIdNotExist, "preset " + std::to_string(preset) + " does not exist");
    }
    m_velocity = {};
    m_position = it->second.position;
    return deviceOk();
}

std::string CameraPtz::setPreset(int preset, const std::string& body) {
    if (preset < 1 || preset > kMaxPreset) {
        return deviceStatus(kBeyondRangeLimit, "preset must be within 1..256");
    }
    Json::Value root;
    if (!parseJson(body, &root)) return deviceStatus(kBadJsonFormat, "body is not JSON");
    if (!root.isObject() || !root.isMember("PTZPreset")) {
        return deviceStatus(kBadJsonContent, "PTZPreset is missing");
    }
    const Json::Value& data = root["PTZPreset"];
    if (!data.isNull() && !data.isObject()) {
        return deviceStatus(kBadParameters, "PTZPreset must be an object");
    }
    const Json::Value& id = member(data, "id");
    if (!id.isNull() && (!id.isString() || id.asString() != std::to_string(preset))) {
        return deviceStatus(kBadParameters, "id does not name preset " + std::to_string(preset));
    }
    Preset updated{"Preset " + std::to_string(preset), true, m_position};
    if (auto it = m_presets.find(preset); it != m_presets.end()) updated.name = it->second.name;
    const Json::Value& name = member(data, "presetName");
    if (!name.isNull()) {
        if (!name.isString()) return deviceStatus(kBadParameters, "presetName must be a string");
        if (name.asString().empty() || name.asString().size() > kMaxPresetName) {
            return deviceStatus(kBeyondRangeLimit, "presetName must hold 1 to 32 characters");
        }
        updated.name = name.asString();
    }
    const Json::Value& enabled = member(data, "enabled");
    if (!enabled.isNull()) {
        if (!enabled.isBool()) return deviceStatus(kBadParameters, "enabled must be a boolean");
        updated.enabled = enabled.asBool();
    }
    m_presets[preset] = updated;
    return deviceOk();
}

std::string CameraPtz::deletePreset(int preset) {
    if (m_presets.erase(preset) == 0) {
        return deviceStatus(kIdNotExist, "preset " + std::to_string(preset) + " does not exist");
    }
    return deviceOk();
}

std::string CameraPtz::gotoHome() {
    m_velocity = {};
    m_position = {};
    return deviceOk();
}

}  // namespace korva::sim
