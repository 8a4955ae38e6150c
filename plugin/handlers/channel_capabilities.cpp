// The capability document of a streaming channel: a fixed document, not taken from the device.
#include <json/writer.h>

#include <string>

#include "host/http_exchange.h"
#include "plugin/handlers/channel_cfg.h"
#include "plugin/pipeline/error_catalogue.h"
#include "plugin/pipeline/json_access.h"
#include "plugin/pipeline/plugin_log.h"

namespace QXKORVAProtocol {
namespace {

struct Attribute {
    const char* name;
    const char* value;
};

// One child of Video in the capability document; second.name is null for a single attribute.
struct CapabilityRow {
    const char* element;
    Attribute first;
    Attribute second;
};

// The values a streaming channel accepts, as published to clients whatever the device reports.
constexpr CapabilityRow kVideoCapabilities[] = {
    {"videoCodecType", {"opt", "H.264,H.265"}, {}},
    {"videoResolutionWidth", {"opt", "1920,1280,704"}, {}},
    {"videoResolutionHeight", {"opt", "1280,720,576"}, {}},
    {"videoQualityControlType", {"opt", "CBR,VBR"}, {}},
    {"constantBitRate", {"min", "512"}, {"max", "8192"}},
    {"fixedQuality", {"opt", "1,20,40,60,80,100"}, {}},
    {"maxFrameRate",
     {"opt", "3000,2500,2200,2000,1800,1600,1500,1200,1000,800,600,5000,400,200,100,50,25,12,6"},
     {}},
    {"keyFrameInterval", {"min", "1"}, {"max", "400"}},
};

}  // namespace

int CChannelCfg::covertChannelIDCapRspBody(std::string* xmlOut, const Json::Value& root,
                                           int method) {
    if (method != QXHttpService::kMethodGet) return kResultNotMine;
    const std::string answer = Json::FastWriter().write(root);
    QXW_LOG(2, "/KORVA/Streaming/channels/<id>/capabilities rep=%s", answer.c_str());
    return getXmlChannelCapabilities(xmlOut, root) == kResultOk ? kResultOk : kResultConvertFailed;
}

int CChannelCfg::getXmlChannelCapabilities(std::string* xmlOut, const Json::Value& root) {
    if (findMember(root, "StreamingChannel") == nullptr) return kResultConvertFailed;
    QXBase::CXmlBase xml;
    xml.CreateRoot("StreamingChannel");
    xml.AddNode("Video");
    for (const CapabilityRow& row : kVideoCapabilities) {
        xml.AddNode(row.element);
        xml.SetAttribute(row.first.name, row.first.value);
        if (row.second.name != nullptr) xml.SetAttribute(row.second.name, row.second.value);
        xml.OutOfElem();
    }
    xml.OutOfElem();
    *xmlOut = xml.WriteToBuf();
    return kResultOk;
}

}  // namespace QXKORVAProtocol
