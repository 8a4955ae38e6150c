#include "plugin/handlers/ptz_ctrl.h"

#include "host/kvl_runtime.h"
#include "host/xml_base.h"
#include "plugin/handlers/device_convert.h"
#include "plugin/pipeline/error_catalogue.h"
#include "plugin/pipeline/field_table.h"
#include "plugin/relay/route_table.h"

namespace QXKORVAProtocol {

namespace {

using fields::Field;
using fields::Kind;
using fields::Rule;

enum class PtzCommand { kChannelList, kContinuous, kPresetGoto, kPreset, kHomeGoto };

// The gateway paths take the request's numbers unchanged, in the same order.
constexpr Route<PtzCommand> kRoutes[] = {
    {"/KORVA/PTZCtrl/channels", kGetBit, "/KORVA/PTZCtrl/channels", PtzCommand::kChannelList},
    {"/KORVA/PTZCtrl/channels/%d/continuous", kPutBit, "/KORVA/PTZCtrl/channels/%d/continuous",
     PtzCommand::kContinuous},
    {"/KORVA/PTZCtrl/channels/%d/presets/%d/goto", kPutBit,
     "/KORVA/PTZCtrl/channels/%d/presets/%d/goto", PtzCommand::kPresetGoto},
    {"/KORVA/PTZCtrl/channels/%d/presets/%d", kPutBit | kDeleteBit,
     "/KORVA/PTZCtrl/channels/%d/presets/%d", PtzCommand::kPreset},
    {"/KORVA/PTZCtrl/channels/%d/homeposition/goto", kPutBit,
     "/KORVA/PTZCtrl/channels/%d/homeposition/goto", PtzCommand::kHomeGoto},
};
constexpr const Route<PtzCommand>& kContinuousRoute = kRoutes[1];
constexpr const Route<PtzCommand>& kPresetRoute = kRoutes[3];
static_assert(kContinuousRoute.entry == PtzCommand::kContinuous);
static_assert(kPresetRoute.entry == PtzCommand::kPreset);

// The row of url when it accepts method.
const Route<PtzCommand>* routeOf(const std::string& url, int method) {
    const Route<PtzCommand>* route = findRoute<PtzCommand>(kRoutes, url);
    return route != nullptr && route->accepts(method) ? route : nullptr;
}

constexpr Field kControlAddressRows[] = {
    {.name = "enabled", .kind = Kind::kBool},
    {.name = "Address", .toXml = Rule::kOptional},
};

constexpr Field kRs485Rows[] = {
    {.name = "baudRate", .kind = Kind::kInt32},
    {.name = "dataBits", .kind = Kind::kInt32},
    {.name = "parityType"},
    {.name = "stopBits"},
    {.name = "flowCtrl"},
};

constexpr Field kChannelRows[] = {
    {.name = "id", .kind = Kind::kInt32},
    {.name = "enabled", .kind = Kind::kBool},
    {.name = "serialNumber", .kind = Kind::kInt32},
    {.name = "videoInputID", .kind = Kind::kInt32},
    {.name = "panMaxSpeed", .kind = Kind::kInt32, .toXml = Rule::kOptional},
    {.name = "tiltMaxSpeed", .kind = Kind::kInt32, .toXml = Rule::kOptional},
    {.name = "presetSpeed", .kind = Kind::kInt32, .toXml = Rule::kOptional},
    {.name = "autoPatrolSpeed", .kind = Kind::kInt32, .toXml = Rule::kOptional},
    {.name = "keyBoardControlSpeed", .kind = Kind::kInt32, .toXml = Rule::kOptional},
    {.name = "controlProtocol", .toXml = Rule::kOptional},
    {.name = "controlAddress",
     .kind = Kind::kObject,
     .toXml = Rule::kOptional,
     .children = kControlAddressRows},
    {.name = "defaultPresetID", .toXml = Rule::kOptional},
    {.name = "PTZRs485Para",
     .kind = Kind::kObject,
     .toXml = Rule::kOptional,
     .children = kRs485Rows},
    {.name = "manualControlSpeed", .toXml = Rule::kOptional},
};

const char* requestBody(const ExchangeHolder& exchange) {
    return exchange.body != nullptr ? exchange.body : "";
}

}  // namespace

int CPTZCtrl::matchURL(const std::string& url, unsigned char method) {
    return matchRoute<PtzCommand>(kRoutes, url, method);
}

int CPTZCtrl::covertUrlandBody(std::string* jsonUrl, std::string* jsonBody,
                               const ExchangeHolder& exchange, const std::string& devIndex) {
    if (!exchange.exchange) return -1;
    const std::string url = exchange.exchange->getUrl();
    const Route<PtzCommand>* route = routeOf(url, exchange.exchange->getMethod());
    if (route == nullptr) return -1;
    switch (route->entry) {
        case PtzCommand::kContinuous:
            return covertPTZContinuousUrlandBody(jsonUrl, jsonBody, exchange, devIndex);
        case PtzCommand::kPreset:
            return covertPTZPresetUrlandBody(jsonUrl, jsonBody, exchange, devIndex);
        case PtzCommand::kChannelList:
        case PtzCommand::kPresetGoto:
        case PtzCommand::kHomeGoto:
            break;
    }
    if (!makeRouteUrl(jsonUrl, *route, url, devIndex)) return -1;
    jsonBody->clear();
    return 0;
}

int CPTZCtrl::covertRsp(std::string* xmlOut, const Json::Value& root, const std::string& url,
                        int method) {
    const Route<PtzCommand>* route = routeOf(url, method);
    if (route == nullptr) return kResultNotMine;
    if (route->entry == PtzCommand::kChannelList) return covertPTZChannelListRsp(xmlOut, root);
    *xmlOut = getResponseByError(static_cast<int>(kErrorOk), url);
    return kResultOk;
}

int CPTZCtrl::covertPTZContinuousUrlandBody(std::string* jsonUrl, std::string* jsonBody,
                                            const ExchangeHolder& exchange,
                                            const std::string& devIndex) {
    if (!exchange.exchange) return -1;
    if (!makeRouteUrl(jsonUrl, kContinuousRoute, exchange.exchange->getUrl(), devIndex)) return 1;
    if (exchange.exchange->getMethod() != QXHttpService::kMethodPut) return -1;

    QXBase::CXmlBase doc;
    if (!doc.Parse(requestBody(exchange)) || !doc.FindElem("PTZData") || !doc.IntoElem()) {
        jsonUrl->clear();
        return 1;
    }
    // No scaling, no range check: the numbers go to the device as the client sent them.
    Json::Value data;
    for (const char* axis : {"pan", "tilt", "zoom"}) {
        if (doc.FindElem(axis)) data[axis] = KVL_Atoi32(doc.GetData().c_str());
    }
    Json::Value body;
    body["PTZData"] = data;
    *jsonBody = device::writeJsonBody(body);
    return 0;
}

int CPTZCtrl::covertPTZPresetUrlandBody(std::string* jsonUrl, std::string* jsonBody,
                                        const ExchangeHolder& exchange,
                                        const std::string& devIndex) {
    if (!exchange.exchange) return -1;
    if (!makeRouteUrl(jsonUrl, kPresetRoute, exchange.exchange->getUrl(), devIndex)) return 1;
    const unsigned char method = exchange.exchange->getMethod();
    if (method == QXHttpService::kMethodDelete) {
        jsonBody->clear();
        return 0;
    }
    if (method != QXHttpService::kMethodPut) return -1;

    QXBase::CXmlBase doc;
    if (!doc.Parse(requestBody(exchange)) || !doc.FindElem("PTZPreset") || !doc.IntoElem()) {
        jsonUrl->clear();
        return 1;
    }
    Json::Value preset;
    // Only the exact text "false" disables the preset.
    if (doc.FindElem("enabled")) preset["enabled"] = doc.GetData() != "false";
    for (const char* name : {"id", "presetName"}) {
        if (!doc.FindElem(name)) continue;
        const std::string text = doc.GetData();
        if (text.empty()) {
            jsonUrl->clear();
            return 1;
        }
        preset[name] = text;
    }
    Json::Value body;
    body["PTZPreset"] = preset;
    *jsonBody = device::writeJsonBody(body);
    return 0;
}

int CPTZCtrl::covertPTZChannelListRsp(std::string* xmlOut, const Json::Value& root) {
    const Json::Value* list = nullptr;
    if (!device::findMember(root, "PTZChannelList", &list) || list == nullptr) {
        return kResultConvertFailed;
    }
    QXBase::CXmlBase doc;
    device::startDocument(doc, "PTZChannelList");
    if (list->isArray()) {
        for (Json::ArrayIndex i = 0; i < list->size(); ++i) {
            const Json::Value* channel = nullptr;
            if (!device::findMember((*list)[i], "PTZChannel", &channel) || channel == nullptr ||
                !channel->isObject()) {
                return kResultConvertFailed;
            }
            doc.AddNode("PTZChannel");
            if (!fields::writeFields(doc, *channel, kChannelRows)) return kResultConvertFailed;
            doc.OutOfElem();
        }
    }
    *xmlOut = doc.WriteToBuf();
    return kResultOk;
}

}  // namespace QXKORVAProtocol
