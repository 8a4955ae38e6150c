#include "gateway/sim/camera_streams.h"

#include <algorithm>
#include <vector>

#include "gateway/sim/device_error.h"
#include "gateway/sim/json_util.h"

namespace korva::sim {

namespace {

constexpr int kStreamsPerInput = 3;

// The values one setting accepts: a range of integers, or a list of texts or integers.
struct Rule {
    const char* section;  // "" for the top level
    const char* name;
    enum Kind { kString, kInt, kBool } kind;
    int min = 0;
    int max = 0;
    std::vector<std::string> texts;  // allowed texts (kString) or integers as text (kInt)
};

const std::vector<Rule>& rules() {
    static const std::vector<Rule> kRules = {
        {"", "channelName", Rule::kString, 1, 32, {}},
        {"", "enabled", Rule::kBool, 0, 0, {}},
        {"Video", "enabled", Rule::kBool, 0, 0, {}},
        {"Video", "videoCodecType", Rule::kString, 0, 0, {"H.264", "H.265"}},
        {"Video", "videoScanType", Rule::kString, 0, 0, {"progressive", "interlaced"}},
        {"Video", "videoResolutionWidth", Rule::kInt, 0, 0, {"1920", "1280", "704", "640", "352"}},
        {"Video", "videoResolutionHeight", Rule::kInt, 0, 0, {"1080", "720", "576", "480", "288"}},
        {"Video", "videoQualityControlType", Rule::kString, 0, 0, {"CBR", "VBR"}},
        {"Video", "constantBitRate", Rule::kInt, 512, 8192, {}},
        {"Video", "fixedQuality", Rule::kInt, 0, 0, {"1", "20", "40", "60", "80", "100"}},
        {"Video", "vbrUpperCap", Rule::kInt, 32, 16384, {}},
        {"Video", "vbrLowerCap", Rule::kInt, 32, 16384, {}},
        {"Video",
         "maxFrameRate",
         Rule::kInt,
         0,
         0,
         {"3000", "2500", "2200", "2000", "1800", "1600", "1500", "1200", "1000", "800", "600",
          "5000", "400", "200", "100", "50", "25", "12", "6"}},
        {"Video", "keyFrameInterval", Rule::kInt, 1, 400, {}},
        {"Video", "GovLength", Rule::kInt, 1, 400, {}},
        {"Video", "smoothing", Rule::kInt, 1, 100, {}},
        {"Audio", "enabled", Rule::kBool, 0, 0, {}},
        {"Audio",
         "audioCompressionType",
         Rule::kString,
         0,
         0,
         {"G.711ulaw", "G.711alaw", "G.726", "AAC"}},
        {"Audio", "audioBitRate", Rule::kInt, 16, 320, {}},
    };
    return kRules;
}

bool listed(const std::vector<std::string>& texts, const std::string& value) {
    return std::find(texts.begin(), texts.end(), value) != texts.end();
}

// "" when the value passes the rule, else the status object text.
std::string checkRule(const Rule& rule, const Json::Value& value) {
    const std::string field =
        std::string(*rule.section ? rule.section : "StreamingChannel") + "." + rule.name;
    switch (rule.kind) {
        case Rule::kBool:
            if (!value.isBool()) return deviceStatus(kBadParameters, field + " must be a boolean");
            return "";
        case Rule::kString: {
            if (!value.isString()) return deviceStatus(kBadParameters, field + " must be a string");
            const std::string text = value.asString();
            if (!rule.texts.empty() && !listed(rule.texts, text)) {
                return deviceStatus(kBeyondRangeLimit, field + " " + text + " is not supported");
            }
            if (rule.max > 0 && (text.size() < static_cast<size_t>(rule.min) ||
                                 text.size() > static_cast<size_t>(rule.max))) {
                return deviceStatus(kBeyondRangeLimit, field + " length is out of range");
            }
            return "";
        }
        case Rule::kInt: {
            if (!value.isInt()) return deviceStatus(kBadParameters, field + " must be an integer");
            const int number = value.asInt();
            if (!rule.texts.empty() && !listed(rule.texts, std::to_string(number))) {
                return deviceStatus(kBeyondRangeLimit,
                                    field + " " + std::to_string(number) + " is not supported");
            }
            if (rule.texts.empty() && (number < rule.min || number > rule.max)) {
                return deviceStatus(kBeyondRangeLimit,
                                    field + " " + std::to_string(number) + " is out of range");
            }
            return "";
        }
    }
    return "";
}

Json::Value controlProtocols(std::initializer_list<const char*> names) {
    Json::Value list(Json::arrayValue);
    for (const char* name : names) {
        Json::Value entry;
        entry["ControlProtocol"]["streamingTransport"] = name;
        list.append(entry);
    }
    return list;
}

Json::Value defaultStream(int input, int stream) {
    static const int kWidths[] = {1920, 704, 1280};
    static const int kHeights[] = {1080, 576, 720};
    static const int kRates[] = {2500, 2500, 1500};
    static const int kBitRates[] = {4096, 1024, 2048};
    const int id = input * 100 + stream;
    Json::Value channel(Json::objectValue);
    channel["id"] = std::to_string(id);
    channel["channelName"] = "Camera 0" + std::to_string(input);
    channel["enabled"] = true;

    Json::Value& transport = channel["Transport"];
    transport["maxPacketSize"] = 1000;
    transport["audioPacketLength"] = 0;
    transport["ControlProtocolList"] = controlProtocols({"RTSP", "HTTP"});
    transport["Unicast"]["enabled"] = true;
    transport["Unicast"]["rtpTransportType"] = "RTP/TCP";
    transport["Multicast"]["enabled"] = false;
    transport["Multicast"]["destIPAddress"] = "0.0.0.0";
    transport["Multicast"]["videoDestPortNo"] = 8860;
    transport["Multicast"]["audioDestPortNo"] = 8862;
    transport["Security"]["enabled"] = true;
    transport["Security"]["certificateType"] = "digest";

    Json::Value& video = channel["Video"];
    video["enabled"] = true;
    video["videoInputChannelID"] = std::to_string(input);
    video["videoCodecType"] = stream == 1 ? "H.265" : "H.264";
    video["videoScanType"] = "progressive";
    video["videoResolutionWidth"] = kWidths[stream - 1];
    video["videoResolutionHeight"] = kHeights[stream - 1];
    video["videoQualityControlType"] = "VBR";
    video["constantBitRate"] = kBitRates[stream - 1];
    video["fixedQuality"] = 60;
    video["vbrUpperCap"] = kBitRates[stream - 1];
    video["vbrLowerCap"] = 32;
    video["maxFrameRate"] = kRates[stream - 1];
    video["keyFrameInterval"] = 50;
    video["mirrorEnabled"] = false;
    video["snapShotImageType"] = "JPEG";
    video["H264Profile"] = "Main";
    video["GovLength"] = 50;
    video["SVC"]["enabled"] = false;
    video["smoothing"] = 50;
    video["SmartCodec"]["enabled"] = false;

    Json::Value& audio = channel["Audio"];
    audio["enabled"] = stream == 1;
    audio["audioInputChannelID"] = "1";
    audio["audioCompressionType"] = "G.711ulaw";
    audio["audioBitRate"] = 64;
    audio["audioSamplingRate"] = 8;
    return channel;
}

}  // namespace

CameraStreams::CameraStreams(int inputs) : m_inputs(inputs) {
    for (int input = 1; input <= inputs; ++input) {
        for (int stream = 1; stream <= kStreamsPerInput; ++stream) {
            m_streams[input * 100 + stream] = defaultStream(input, stream);
        }
    }
}

Json::Value CameraStreams::document(int id) const {
    Json::Value root(Json::objectValue);
    root["StreamingChannel"] = m_streams.at(id);
    return root;
}

Json::Value CameraStreams::list() const {
    Json::Value root(Json::objectValue);
    Json::Value& list = root["StreamingChannelList"] = Json::Value(Json::arrayValue);
    for (const auto& [id, channel] : m_streams) {
        Json::Value entry(Json::objectValue);
        entry["StreamingChannel"] = channel;
        list.append(entry);
    }
    return root;
}

Json::Value CameraStreams::capabilities(int id) const {
    Json::Value root(Json::objectValue);
    Json::Value& channel = root["StreamingChannel"];
    channel["id"] = std::to_string(id);
    Json::Value& video = channel["Video"];
    for (const Rule& rule : rules()) {
        if (std::string(rule.section) != "Video" || rule.kind == Rule::kBool) continue;
        Json::Value& entry = video[rule.name];
        if (!rule.texts.empty()) {
            std::string options;
            for (const auto& text : rule.texts) options += (options.empty() ? "" : ",") + text;
            entry["opt"] = options;
        } else if (rule.kind == Rule::kInt) {
            entry["min"] = rule.min;
            entry["max"] = rule.max;
        }
    }
    return root;
}

std::string CameraStreams::check(int id, const Json::Value& channel) const {
    const Json::Value& idValue = member(channel, "id");
    if (!idValue.isNull() && (!idValue.isString() || idValue.asString() != std::to_string(id))) {
        return deviceStatus(kBadParameters,
                            "id does not name streaming channel " + std::to_string(id));
    }
    for (const char* section : {"Transport", "Video", "Audio"}) {
        const Json::Value& value = member(channel, section);
        if (!value.isNull() && !value.isObject()) {
            return deviceStatus(kBadParameters, std::string(section) + " must be an object");
        }
    }
    for (const Rule& rule : rules()) {
        const Json::Value& holder = *rule.section ? member(channel, rule.section) : channel;
        const Json::Value& value = member(holder, rule.name);
        if (value.isNull()) continue;
        if (std::string error = checkRule(rule, value); !error.empty()) return error;
    }
    const Json::Value& input = member(member(channel, "Video"), "videoInputChannelID");
    if (!input.isNull() && (!input.isString() || input.asString() != std::to_string(id / 100))) {
        return deviceStatus(kBadParameters,
                            "Video.videoInputChannelID must be " + std::to_string(id / 100));
    }
    const Json::Value& protocols = member(member(channel, "Transport"), "ControlProtocolList");
    if (!protocols.isNull()) {
        if (!protocols.isArray() || protocols.empty()) {
            return deviceStatus(kBadParameters,
                                "Transport.ControlProtocolList must list protocols");
        }
        for (const auto& entry : protocols) {
            const Json::Value& name =
                member(member(entry, "ControlProtocol"), "streamingTransport");
            if (!name.isString() || !listed({"RTSP", "HTTP", "SRTP"}, name.asString())) {
                return deviceStatus(kBeyondRangeLimit, "unsupported streamingTransport");
            }
        }
    }
    return "";
}

std::string CameraStreams::update(int id, const std::string& body) {
    Json::Value root;
    if (!parseJson(body, &root)) return deviceStatus(kBadJsonFormat, "body is not JSON");
    const Json::Value& channel = member(root, "StreamingChannel");
    if (!channel.isObject()) return deviceStatus(kBadJsonContent, "StreamingChannel is missing");
    if (std::string error = check(id, channel); !error.empty()) return error;
    Json::Value& stored = m_streams.at(id);
    mergeInto(stored, channel);
    stored["id"] = std::to_string(id);
    return "";
}

}  // namespace korva::sim
