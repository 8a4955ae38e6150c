#include "plugin/handlers/ptz_ctrl.h"

#include "host/kvl_runtime.h"
#include "host/xml_base.h"
#include "plugin/pipeline/error_catalogue.h"
#include "plugin/pipeline/field_table.h"
#include "plugin/pipeline/json_access.h"
#include "plugin/pipeline/xml_text.h"
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

// The command body: readContent turns the children of the request body's element `root` into
// the JSON body {root: content} (content stays null when it reads nothing). 0, or 1 with
// *jsonUrl emptied when the body is not XML, has no `root` or readContent refuses it.
template <typename ReadContent>
int convertCommandBody(std::string* jsonUrl, std::string* jsonBody, const ExchangeHolder& exchange,
                       const char* root, ReadContent readContent) {
    QXBase::CXmlBase doc;
    Json::Value content;
    if (!doc.Parse(exchange.body != nullptr ? exchange.body : "") || !doc.FindElem(root) ||
        !doc.IntoElem() || !readContent(doc, content)) {
        jsonUrl->clear();
        return 1;
    }
    Json::Value body;
    body[root] = std::move(content);
    *jsonBody = writeJsonBody(body);
    return 0;
}

// No scaling, no range check: the numbers go to the device as the client sent them.
bool readMove(QXBase::CXmlBase& doc, Json::Value& data) {
    for (const char* axis : {"pan", "tilt", "zoom"}) {
        if (doc.FindElem(axis)) data[axis] = KVL_Atoi32(doc.GetData().c_str());
    }
    return true;
}

// Only the exact text "false" disables the preset; an empty id or name is refused.
bool readPreset(QXBase::CXmlBase& doc, Json::Value& preset) {
    if (doc.FindElem("enabled")) preset["enabled"] = doc.GetData() != "false";
    for (const char* name : {"id", "presetName"}) {
        if (!doc.FindElem(name)) continue;
        const std::string text = doc.GetData();
        if (text.empty()) return false;
        preset[name] = text;
    }
    return true;
}

}  // namespace

int CPTZCtrl::matchURL(const std::string& url, unsigned char method) {
    return matchRoute<PtzCommand>(kRoutes, url, method);
}

int CPTZCtrl::covertUrlandBody(std::string* jsonUrl, std::string* jsonBody,
                               const ExchangeHolder& exchange, const std::string& devIndex) {
    if (!exchange.exchange) return -1;
    const std::string url = exchange.exchange->getUrl();
    const int method = exchange.exchange->getMethod();
    const Route<PtzCommand>* route = routeOf(url, method);
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
    return relayWithoutBody(jsonUrl, jsonBody, *route, url, method, devIndex);
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
    if (const int result = startCommand(jsonUrl, kContinuousRoute, exchange, devIndex)) {
        return result;
    }
    if (exchange.exchange->getMethod() != QXHttpService::kMethodPut) return -1;
    return convertCommandBody(jsonUrl, jsonBody, exchange, "PTZData", readMove);
}

int CPTZCtrl::covertPTZPresetUrlandBody(std::string* jsonUrl, std::string* jsonBody,
                                        const ExchangeHolder& exchange,
                                        const std::string& devIndex) {
    if (const int result = startCommand(jsonUrl, kPresetRoute, exchange, devIndex)) return result;
    const unsigned char method = exchange.exchange->getMethod();
    if (method == QXHttpService::kMethodDelete) {
        jsonBody->clear();
        return 0;
    }
    if (method != QXHttpService::kMethodPut) return -1;
    return convertCommandBody(jsonUrl, jsonBody, exchange, "PTZPreset", readPreset);
}

int CPTZCtrl::covertPTZChannelListRsp(std::string* xmlOut, const Json::Value& root) {
    const Json::Value* list = findMember(root, "PTZChannelList");
    if (list == nullptr) return kResultConvertFailed;
    QXBase::CXmlBase doc;
    startDocument(doc, "PTZChannelList");
    if (!fields::writeItems(doc, *list, "PTZChannel", kChannelRows)) return kResultConvertFailed;
    *xmlOut = doc.WriteToBuf();
    return kResultOk;
}

}  // namespace QXKORVAProtocol
