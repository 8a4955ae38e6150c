// StreamingChannel documents: the top level and the Transport section in both directions, and
// the StreamingChannelList answer.
#include <json/writer.h>

#include <string>

#include "plugin/handlers/channel_cfg.h"
#include "plugin/handlers/channel_fields.h"
#include "plugin/handlers/channel_sections.h"
#include "plugin/pipeline/error_catalogue.h"
#include "plugin/pipeline/plugin_log.h"

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
    const Json::Value* protocol = member(entry, "ControlProtocol");
    const Json::Value* transport = protocol ? member(*protocol, "streamingTransport") : nullptr;
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

constexpr CustomSection kControlProtocolList{readControlProtocols, checkControlProtocols,
                                             writeControlProtocols};

constexpr Field kUnicastFields[] = {
    boolean("enabled", kRequired, kRequired),
    text("interfaceID", kOptional, kOptional),
    text("rtpTransportType", kOptional, kOptional),
};
constexpr Section kUnicast{kUnicastFields};

constexpr Field kMulticastFields[] = {
    boolean("enabled", kRequired, kRequired),
    integer("userTriggerThreshold", kOptional, kOptional),
    text("destIPAddress", kOptional, kOptional),
    integer("videoDestPortNo", kOptional, kOptional),
    integer("audioDestPortNo", kOptional, kOptional),
    text("destIPv6Address", kOptional, kOptional),
    integer("ttl", kOptional, kOptional),
};
// Written when the device's Transport has no Multicast.
constexpr DefaultElement kMulticastDefaults[] = {
    {"enabled", "true"},
    {"destIPAddress", "0.0.0.0"},
    {"videoDestPortNo", "0"},
    {"audioDestPortNo", "0"},
};
constexpr Section kMulticast{kMulticastFields, kMulticastDefaults};

constexpr Field kSecurityFields[] = {
    boolean("enabled", kRequired, kRequired),
    text("certificateType", kOptional, kOptional),
};
constexpr Section kSecurity{kSecurityFields};

// Children of Transport, in document order.
constexpr Field kTransportFields[] = {
    integer("maxPacketSize", kOptional, kOptional),
    integer("audioPacketLength", kOptional, kOptional),
    integer("audioInboundPacketLength", kOptional, kOptional),
    integer("audioInboundPortNo", kOptional, kNever),
    integer("videoSourcePortNo", kOptional, kOptional),
    integer("audioSourcePortNo", kOptional, kOptional),
    custom("ControlProtocolList", kRequired, kRequired, &kControlProtocolList),
    section("Unicast", kOptional, kOptional, &kUnicast),
    section("Multicast", kOptional, kDefault, &kMulticast),
    section("Security", kOptional, kOptional, &kSecurity),
};
constexpr Section kTransport{kTransportFields};

// A null Transport from the device stands for RTSP with the default Multicast.
void writeDefaultTransport(QXBase::CXmlBase& xml) {
    xml.AddNode("Transport");
    xml.AddNode("ControlProtocolList");
    addControlProtocol(xml, kDefaultStreamingTransport);
    xml.OutOfElem();
    writeDefaultSection(xml, "Multicast", kMulticastDefaults);
    xml.OutOfElem();
}

constexpr CustomSection kTransportSection{
    &CChannelCfg::getJsonTransport,
    [](const Json::Value& value) { return value.isNull() || checkFields(kTransport, value); },
    &CChannelCfg::getXmlTransport,
};

// Children of StreamingChannel, in document order.
constexpr Field kStreamingChannelFields[] = {
    text("id", kRequired, kRequired),
    text("channelName", kRequired, kRequired),
    boolean("enabled", kRequired, kRequired),
    custom("Transport", kRequired, kRequired, &kTransportSection),
    custom("Video", kOptional, kOptional, &kVideoSection),
    custom("Audio", kOptional, kOptional, &kAudioSection),
    boolean("enableCABAC", kOptional, kOptional),
    boolean("subStreamRecStatus", kOptional, kOptional),
    boolean("customStreamEnable", kOptional, kOptional),
};
constexpr Section kStreamingChannel{kStreamingChannelFields};

// The list carries streams 01 and 02 of each channel only: an element whose id (a JSON string)
// names stream 03 or above is left out.
bool isLaterStream(const Json::Value& element) {
    const Json::Value* channel = member(element, "StreamingChannel");
    const Json::Value* id = channel ? member(*channel, "id") : nullptr;
    return id && id->isString() && leadingInt(id->asString()) % 100 > 2;
}

}  // namespace
}  // namespace channel

int CChannelCfg::getJsonStreamingChannel(std::string* jsonText, const std::string& xmlText) {
    QXBase::CXmlBase xml;
    if (!xml.Parse(xmlText) || !xml.FindElem("StreamingChannel") || !xml.IntoElem()) {
        return kResultConvertFailed;
    }
    Json::Value channel;
    if (channel::readSection(channel::kStreamingChannel, xml, &channel) != kResultOk) {
        return kResultConvertFailed;
    }
    Json::Value root(Json::objectValue);
    root["StreamingChannel"] = std::move(channel);
    *jsonText = Json::FastWriter().write(root);
    return kResultOk;
}

int CChannelCfg::getJsonTransport(Json::Value* out, QXBase::CXmlBase& xml) {
    return channel::readSection(channel::kTransport, xml, out);
}

int CChannelCfg::getXmlStreamingChannel(std::string* xmlText, const Json::Value& root) {
    const Json::Value* content = channel::member(root, "StreamingChannel");
    if (content == nullptr || !channel::checkFields(channel::kStreamingChannel, *content)) {
        return kResultConvertFailed;
    }
    QXBase::CXmlBase xml;
    xml.CreateRoot("StreamingChannel");
    if (channel::writeFields(channel::kStreamingChannel, xml, *content) != kResultOk) {
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
    return channel::writeSection(channel::kTransport, "Transport", xml, transport);
}

int CChannelCfg::getXmlStreamingChannelList(std::string* xmlText, const Json::Value& root) {
    QXW_LOG(3, "getXmlStreamingChannelList start");
    const Json::Value* list = channel::member(root, "StreamingChannelList");
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
