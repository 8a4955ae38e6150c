#include "gateway/sim/sim_camera.h"

#include <cstdio>

#include "gateway/sim/device_error.h"
#include "gateway/sim/json_util.h"
#include "gateway/sim/path_pattern.h"

namespace korva::sim {

namespace {

enum : int { kGet = 0, kPut = 1, kPost = 2, kDelete = 3 };

constexpr const char* kSmartFeatures[][2] = {
    {"isSupportROI", "1"},
    {"isSupportFaceDetect", "0"},
    {"isSupportIntelliTrace", "0"},
    {"isSupportFieldDetection", "1"},
    {"isSupportDefocusDetection", "1"},
    {"isSupportAudioDetection", "1"},
    {"isSupportSceneChangeDetection", "1"},
    {"isSupportLineDetection", "1"},
    {"isSupportRegionEntrance", "1"},
    {"isSupportRegionExiting", "1"},
    {"isSupportLoitering", "0"},
    {"isSupportPeopleDetection", "1"},
    {"isSupportShield", "1"},
    {"isSupportVideoOverlap", "1"},
    {"isSupportImageROI", "1"},
    {"isSupportAlgVersion", "0"},
};

std::uint64_t fnv1a(const std::string& text, std::uint64_t seed) {
    std::uint64_t hash = seed;
    for (const char c : text) {
        hash ^= static_cast<unsigned char>(c);  // the byte value, whatever char's signedness
        hash *= 1099511628211ULL;
    }
    return hash;
}

std::string unknownChannel(int channel) {
    return deviceStatus(kInvalidChannel, "channel " + std::to_string(channel) + " does not exist");
}

}  // namespace

std::string stableUuid(const std::string& text) {
    const std::uint64_t a = fnv1a(text, 14695981039346656037ULL);
    const std::uint64_t b = fnv1a(text + "#", a);
    char buffer[40];
    std::snprintf(buffer, sizeof buffer, "%08x-%04x-%04x-%04x-%012llx",
                  static_cast<unsigned>(a >> 32), static_cast<unsigned>((a >> 16) & 0xFFFF),
                  static_cast<unsigned>(a & 0xFFFF), static_cast<unsigned>(b >> 48),
                  static_cast<unsigned long long>(b & 0xFFFFFFFFFFFFULL));
    return buffer;
}

SimCamera::SimCamera(std::string devIndex, std::time_t now)
    : m_devIndex(std::move(devIndex)),
      m_sourceId(stableUuid(m_devIndex)),
      m_recordings(m_sourceId, "192.168.1.64", kInputs, now),
      m_streams(kInputs) {}

const std::vector<SimCamera::Route>& SimCamera::routes() {
    static const std::vector<Route> kRoutes = {
        {kGet, "/KORVA/System/deviceInfo", &SimCamera::deviceInfo},
        {kGet, "/KORVA/System/Video/inputs/channels", &SimCamera::videoInputs},
        {kGet, "/KORVA/Streaming/channels", &SimCamera::streamList},
        {kGet, "/KORVA/Streaming/channels/{}", &SimCamera::getStream},
        {kPut, "/KORVA/Streaming/channels/{}", &SimCamera::putStream},
        {kGet, "/KORVA/Streaming/channels/{}/capabilities", &SimCamera::streamCapabilities},
        {kGet, "/KORVA/Smart/capabilities", &SimCamera::smartCapabilities},
        {kGet, "/KORVA/System/IO", &SimCamera::ioPorts},
        {kPut, "/KORVA/System/IO/outputs/{}/trigger", &SimCamera::triggerOutput},
        {kGet, "/KORVA/PTZCtrl/channels", &SimCamera::ptzChannels},
        {kPut, "/KORVA/PTZCtrl/channels/{}/continuous", &SimCamera::ptzMove},
        {kPut, "/KORVA/PTZCtrl/channels/{}/presets/{}/goto", &SimCamera::ptzGotoPreset},
        {kPut, "/KORVA/PTZCtrl/channels/{}/presets/{}", &SimCamera::ptzSetPreset},
        {kDelete, "/KORVA/PTZCtrl/channels/{}/presets/{}", &SimCamera::ptzDeletePreset},
        {kPut, "/KORVA/PTZCtrl/channels/{}/homeposition/goto", &SimCamera::ptzHome},
        {kPost, "/KORVA/ContentMgmt/search", &SimCamera::search},
    };
    return kRoutes;
}

void SimCamera::handle(const korva::host::DeviceRequest& request, korva::host::DeviceReply reply) {
    reply(answer(request));
}

std::string SimCamera::answer(const korva::host::DeviceRequest& request) {
    std::vector<int> numbers;
    bool pathKnown = false;
    for (const Route& route : routes()) {
        if (!matchPath(route.pattern, request.path, &numbers)) continue;
        pathKnown = true;
        if (route.method != request.method) continue;
        return run(route, request, numbers);
    }
    if (pathKnown) return deviceStatus(kMethodNotAllowed, "method not allowed on " + request.path);
    return deviceStatus(kNotSupport, "no such resource: " + request.path);
}

std::string SimCamera::run(const Route& route, const korva::host::DeviceRequest& request,
                           const std::vector<int>& numbers) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (route.method != kGet) m_answers.clear();  // the state may change
    if (route.method == kGet) {
        auto cached = m_answers.find(request.path);
        if (cached != m_answers.end()) return cached->second;
    }
    std::string text;
    try {
        text = (this->*route.handler)(numbers, request.body);
    } catch (const std::exception& error) {  // a JSON type the checks missed
        return deviceStatus(kBadParameters, error.what());
    }
    if (route.method == kGet && m_answers.size() < kCachedAnswers) {
        m_answers.emplace(request.path, text);
    }
    return text;
}

std::string SimCamera::outputState(int port) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return port == 1 ? m_outputState : "";
}

std::string SimCamera::deviceInfo(const std::vector<int>&, const std::string&) {
    Json::Value info(Json::objectValue);
    info["deviceName"] = "Camera " + m_devIndex;
    info["deviceID"] = m_sourceId;
    info["deviceDescription"] = "IPCamera";
    info["model"] = "SIM-2CH-PTZ";
    info["serialNumber"] = "SIM2CH" + m_sourceId.substr(0, 8);
    char mac[18];
    std::snprintf(mac, sizeof mac, "02:%s:%s:%s:%s:%s", m_sourceId.substr(0, 2).c_str(),
                  m_sourceId.substr(2, 2).c_str(), m_sourceId.substr(4, 2).c_str(),
                  m_sourceId.substr(6, 2).c_str(), m_sourceId.substr(9, 2).c_str());
    info["macAddress"] = mac;
    info["firmwareVersion"] = "V5.7.3";
    info["firmwareReleasedDate"] = "build 240118";
    info["bootVersion"] = "V1.3.4";
    info["deviceType"] = "IPCamera";
    Json::Value root(Json::objectValue);
    root["DeviceInfo"] = info;
    return writeJson(root);
}

std::string SimCamera::videoInputs(const std::vector<int>&, const std::string&) {
    Json::Value root(Json::objectValue);
    Json::Value& list = root["VideoInputChannelList"] = Json::Value(Json::arrayValue);
    for (int input = 1; input <= kInputs; ++input) {
        Json::Value entry(Json::objectValue);
        entry["VideoInputChannel"]["id"] = std::to_string(input);
        entry["VideoInputChannel"]["inputPort"] = std::to_string(input);
        entry["VideoInputChannel"]["name"] = "Camera 0" + std::to_string(input);
        list.append(entry);
    }
    return writeJson(root);
}

std::string SimCamera::streamList(const std::vector<int>&, const std::string&) {
    return writeJson(m_streams.list());
}

std::string SimCamera::getStream(const std::vector<int>& numbers, const std::string&) {
    if (!m_streams.has(numbers[0])) return unknownChannel(numbers[0]);
    return writeJson(m_streams.document(numbers[0]));
}

std::string SimCamera::putStream(const std::vector<int>& numbers, const std::string& body) {
    if (!m_streams.has(numbers[0])) return unknownChannel(numbers[0]);
    const std::string error = m_streams.update(numbers[0], body);
    return error.empty() ? deviceOk() : error;
}

std::string SimCamera::streamCapabilities(const std::vector<int>& numbers, const std::string&) {
    // Capabilities are asked per input (1, 2) or per streaming channel (101...).
    const int id = numbers[0] > 0 && numbers[0] <= kInputs ? numbers[0] * 100 + 1 : numbers[0];
    if (!m_streams.has(id)) return unknownChannel(numbers[0]);
    return writeJson(m_streams.capabilities(id));
}

std::string SimCamera::smartCapabilities(const std::vector<int>&, const std::string&) {
    Json::Value root(Json::objectValue);
    for (const auto& feature : kSmartFeatures) root["SmartCap"][feature[0]] = feature[1][0] == '1';
    return writeJson(root);
}

std::string SimCamera::ioPorts(const std::vector<int>&, const std::string&) {
    Json::Value root(Json::objectValue);
    Json::Value& ports = root["IOPortList"];
    const char* names[] = {"Door contact", "Window contact"};
    for (int id = 1; id <= 2; ++id) {
        Json::Value entry(Json::objectValue);
        entry["IOInputPort"]["id"] = id;
        entry["IOInputPort"]["enable"] = id == 1;
        entry["IOInputPort"]["triggering"] = id == 1 ? "low" : "high";
        entry["IOInputPort"]["name"] = names[id - 1];
        ports["IOInputPortList"].append(entry);
    }
    Json::Value output(Json::objectValue);
    output["IOOutputPort"]["id"] = 1;
    output["IOOutputPort"]["enable"] = true;
    output["IOOutputPort"]["name"] = "Siren";
    ports["IOOutputPortList"].append(output);
    return writeJson(root);
}

std::string SimCamera::triggerOutput(const std::vector<int>& numbers, const std::string& body) {
    if (numbers[0] != 1) {
        return deviceStatus(kInvalidChannel,
                            "output port " + std::to_string(numbers[0]) + " does not exist");
    }
    Json::Value root;
    if (!parseJson(body, &root)) return deviceStatus(kBadJsonFormat, "body is not JSON");
    const Json::Value& state = member(member(root, "IOPortData"), "outputState");
    if (!state.isString())
        return deviceStatus(kBadJsonContent, "IOPortData.outputState is missing");
    if (state.asString() != "high" && state.asString() != "low") {
        return deviceStatus(kBadParameters, "outputState must be high or low");
    }
    m_outputState = state.asString();
    return deviceOk();
}

std::string SimCamera::ptzChannels(const std::vector<int>&, const std::string&) {
    return writeJson(m_ptz.channelList());
}

std::string SimCamera::ptzMove(const std::vector<int>& numbers, const std::string& body) {
    if (!m_ptz.hasChannel(numbers[0])) return unknownChannel(numbers[0]);
    return m_ptz.move(body);
}

std::string SimCamera::ptzGotoPreset(const std::vector<int>& numbers, const std::string&) {
    if (!m_ptz.hasChannel(numbers[0])) return unknownChannel(numbers[0]);
    return m_ptz.gotoPreset(numbers[1]);
}

std::string SimCamera::ptzSetPreset(const std::vector<int>& numbers, const std::string& body) {
    if (!m_ptz.hasChannel(numbers[0])) return unknownChannel(numbers[0]);
    return m_ptz.setPreset(numbers[1], body);
}

std::string SimCamera::ptzDeletePreset(const std::vector<int>& numbers, const std::string&) {
    if (!m_ptz.hasChannel(numbers[0])) return unknownChannel(numbers[0]);
    return m_ptz.deletePreset(numbers[1]);
}

std::string SimCamera::ptzHome(const std::vector<int>& numbers, const std::string&) {
    if (!m_ptz.hasChannel(numbers[0])) return unknownChannel(numbers[0]);
    return m_ptz.gotoHome();
}

std::string SimCamera::search(const std::vector<int>&, const std::string& body) {
    return m_recordings.search(body);
}

}  // namespace korva::sim
