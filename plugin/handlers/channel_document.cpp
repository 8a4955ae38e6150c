// StreamingChannel documents: the top level and the Transport section in both directions, and
// the StreamingChannelList answer.
#include <string>

#include "host/kvl_runtime.h"
#include "plugin/handlers/channel_cfg.h"
#include "plugin/handlers/channel_sections.h"
#include "plugin/pipeline/error_catalogue.h"
#include "plugin/pipeline/json_access.h"
#include "plugin/pipeline/plugin_log.h"
#include "plugin/pipeline/xml_text.h"

namespace QXKORVAProtocol {
namespace channel {
namespace {

using enum Rule;

// One StreamingChannel document must fit a buffer of this size (with its terminating NUL).
constexpr size_t kDocumentBufferSize = 102400;

// Streaming transport of the Transport section written when the device sends none.
constexpr const char* kDefaultStreamingTransport = "RTSP";

// ControlProtocolList: XML <ControlProtocol><streamingTransport>..</..></..> elements, JSON
// [{"ControlProtocol":{"streamingTransport":".."}}, ...].
int readControlProtocols(Json::Value* out, QXBase::CXmlBase& xml) {
    Json::Value list(Json::arrayValue);
    while (xml.FindElem("ControlProtocol")) {
        if (!xml.IntoElem()) return kResultConvertFailed;
        const bool found = xml.FindElem("streamingTransport");
        const std::string transport = found ? xml.GetData() : std::string();
        xml.OutOfElem();
        if (!found) return kResultConvertFailed;
        Json::Value entry(Json::objectValue);
        entry["ControlProtocol"]["streamingTransport"] = transport;
        list.append(std::move(entry));
    }
    *out = std::move(list);
    return kResultOk;
}

const Json::Value* streamingTransportOf(const Json::Value& entry) {
    const Json::Value* protocol = findMember(entry, "ControlProtocol");
    const Json::Value* transport = protocol ? findMember(*protocol, "streamingTransport") : nullptr;
    return transport && transport->isString() ? transport : nullptr;
}

bool checkControlProtocols(const Json::Value& value) {
    if (!value.isArray()) return false;
    for (const Json::Value& entry : value) {
        if (streamingTransportOf(entry) == nullptr) return false;
    }
    return true;
}

void addControlProtocol(QXBase::CXmlBase& xml, const std::string& transport) {
    xml.AddNode("ControlProtocol");
    addTextElement(xml, "streamingTransport", transport);
    xml.OutOfElem();
}

int writeControlProtocols(QXBase::CXmlBase& xml, const Json::Value& value) {
    if (!checkControlProtocols(value)) return kResultConvertFailed;
    xml.AddNode("ControlProtocolList");
    for (const Json::Value& entry : value) {
        addControlProtocol(xml, streamingTransportOf(entry)->asString());
    }
    xml.OutOfElem();
    return kResultOk;
}

constexpr CustomField kControlProtocolList{readControlProtocols, writeControlProtocols};

constexpr Field kUnicastFields[] = {
    boolean("enabled", kRequired, kRequired),
    text("interfaceID", kOptional, kWhenTyped),
    text("rtpTransportType", kOptional, kWhenTyped),
};

constexpr Field kMulticastFields[] = {
    boolean("enabled", kRequired, kRequired),
    integer("userTriggerThreshold", kOptional, kWhenTyped),
    text("destIPAddress", kOptional, kWhenTyped),
    integer("videoDestPortNo", kOptional, kWhenTyped),
    integer("audioDestPortNo", kOptional, kWhenTyped),
    text("destIPv6Address", kOptional, kWhenTyped),
    integer("ttl", kOptional, kWhenTyped),
};
// Written when the device's Transport has no Multicast.
constexpr DefaultElement kMulticastDefaults[] = {
    {"enabled", "true"},
    {"destIPAddress", "0.0.0.0"},
    {"videoDestPortNo", "0"},
    {"audioDestPortNo", "0"},
};

constexpr Field kSecurityFields[] = {
    boolean("enabled", kRequired, kRequired),
    text("certificateType", kOptional, kWhenTyped),
};

// Children of Transport, in document order.
constexpr Field kTransportFields[] = {
    integer("maxPacketSize", kOptional, kWhenTyped),
    integer("audioPacketLength", kOptional, kWhenTyped),
    integer("audioInboundPacketLength", kOptional, kWhenTyped),
    integer("audioInboundPortNo", kOptional, kNever),
    integer("videoSourcePortNo", kOptional, kWhenTyped),
    integer("audioSourcePortNo", kOptional, kWhenTyped),
    custom("ControlProtocolList", kRequired, kRequired, &kControlProtocolList),
    section("Unicast", kOptional, kOptional, kUnicastFields),
    section("Multicast", kOptional, kDefault, kMulticastFields, kMulticastDefaults),
    section("Security", kOptional, kOptional, kSecurityFields),
};

// A null Transport from the device stands for RTSP with the default Multicast.
void writeDefaultTransport(QXBase::CXmlBase& xml) {
    xml.AddNode("Transport");
    xml.AddNode("ControlProtocolList");
    addControlProtocol(xml, kDefaultStreamingTransport);
    xml.OutOfElem();
    fields::writeDefaults(xml, "Multicast", kMulticastDefaults);
    xml.OutOfElem();
}

constexpr CustomField kTransportSection{&CChannelCfg::getJsonTransport,
                                        &CChannelCfg::getXmlTransport};

// Children of StreamingChannel, in document order.
constexpr Field kStreamingChannelFields[] = {
    text("id", kRequired, kRequired),
    text("channelName", kRequired, kRequired),
    boolean("enabled", kRequired, kRequired),
    custom("Transport", kRequired, kRequired, &kTransportSection),
    custom("Video", kOptional, kOptional, &kVideoSection),
    custom("Audio", kOptional, kOptional, &kAudioSection),
    boolean("enableCABAC", kOptional, kWhenTyped),
    boolean("subStreamRecStatus", kOptional, kWhenTyped),
    boolean("customStreamEnable", kOptional, kWhenTyped),
};

// The list carries streams 01 and 02 of each channel only: an element whose id (a JSON string)
// names stream 03 or above is left out.
bool isLaterStream(const Json::Value& element) {
    const Json::Value* channel = findMember(element, "StreamingChannel");
    const Json::Value* id = channel ? findMember(*channel, "id") : nullptr;
    return id && id->isString() && KVL_Atoi32(id->asString().c_str()) % 100 > 2;
}

}  // namespace
}  // namespace channel

int CChannelCfg::getJsonStreamingChannel(std::string* jsonText, const std::string& xmlText) {
    QXBase::CXmlBase xml;
    if (!xml.Parse(xmlText) || !xml.FindElem("StreamingChannel") || !xml.IntoElem()) {
        return kResultConvertFailed;
    }
    Json::Value channel;
    if (!fields::readObject(xml, channel::kStreamingChannelFields, &channel)) {
        return kResultConvertFailed;
    }
    Json::Value root(Json::objectValue);
    root["StreamingChannel"] = std::move(channel);
    *jsonText = writeJsonBody(root);
    return kResultOk;
}

int CChannelCfg::getJsonTransport(Json::Value* out, QXBase::CXmlBase& xml) {
    return fields::readObject(xml, channel::kTransportFields, out) ? kResultOk
                                                                   : kResultConvertFailed;
}

int CChannelCfg::getXmlStreamingChannel(std::string* xmlText, const Json::Value& root) {
    const Json::Value* content = findMember(root, "StreamingChannel");
    if (content == nullptr || !content->isObject()) return kResultConvertFailed;
    QXBase::CXmlBase xml;
    xml.CreateRoot("StreamingChannel");
    if (!fields::writeFields(xml, *content, channel::kStreamingChannelFields)) {
        return kResultConvertFailed;
    }
    // A document that does not fit the answer buffer is refused rather than sent cut short.
    std::string text = xml.WriteToBuf();
    if (text.size() >= channel::kDocumentBufferSize) return kResultConvertFailed;
    *xmlText = std::move(text);
    return kResultOk;
}

int CChannelCfg::getXmlTransport(QXBase::CXmlBase& xml, const Json::Value& transport) {
    if (transport.isNull()) {
        channel::writeDefaultTransport(xml);
        return kResultOk;
    }
    return fields::writeObject(xml, "Transport", channel::kTransportFields, transport)
               ? kResultOk
               : kResultConvertFailed;
}

int CChannelCfg::getXmlStreamingChannelList(std::string* xmlText, const Json::Value& root) {
    QXW_LOG(3, "getXmlStreamingChannelList start");
    const Json::Value* list = findMember(root, "StreamingChannelList");
    if (list == nullptr || !list->isArray()) return kResultConvertFailed;

    std::string text = "<StreamingChannelList>\r\n";
    for (Json::ArrayIndex index = 0; index < list->size(); ++index) {
        const Json::Value& element = (*list)[index];
        if (channel::isLaterStream(element)) continue;
        std::string document;
        if (getXmlStreamingChannel(&document, element) != kResultOk) {
            QXW_LOG(5, "get xml streamingchannel[%d] fail", static_cast<int>(index));
            break;
        }
        text += document;
    }
    text += "</StreamingChannelList>";
    *xmlText = std::move(text);
    QXW_LOG(3, "getXmlStreamingChannelList end");
    return kResultOk;
}

}  // namespace QXKORVAProtocol
