#include "plugin/handlers/event_cfg.h"

#include <array>
#include <cstddef>
#include <iterator>

#include "host/xml_base.h"
#include "plugin/pipeline/error_catalogue.h"
#include "plugin/pipeline/field_table.h"
#include "plugin/pipeline/json_access.h"
#include "plugin/pipeline/plugin_log.h"
#include "plugin/pipeline/xml_text.h"
#include "plugin/relay/route_table.h"

namespace QXKORVAProtocol {

namespace {

using fields::Field;
using fields::Kind;
using fields::Rule;

enum class EventAnswer { kSmartCap, kIOPortList, kDeviceCap, kTrigger };

// The system capability resource relays the smart-capability read.
constexpr Route<EventAnswer> kRoutes[] = {
    {"/KORVA/Smart/capabilities", kGetBit, "/KORVA/Smart/capabilities", EventAnswer::kSmartCap},
    {"/KORVA/Smart/capabilities/SmartCap", kGetBit, "/KORVA/Smart/capabilities",
     EventAnswer::kSmartCap},
    {"/KORVA/System/IO", kGetBit, "/KORVA/System/IO", EventAnswer::kIOPortList},
    {"/KORVA/System/capabilities", kGetBit, "/KORVA/Smart/capabilities", EventAnswer::kDeviceCap},
    {"/KORVA/System/IO/outputs/%d/trigger", kPutBit, "/KORVA/System/IO/outputs/%d/trigger",
     EventAnswer::kTrigger},
};
constexpr const Route<EventAnswer>& kTriggerRoute = kRoutes[4];
static_assert(kTriggerRoute.entry == EventAnswer::kTrigger);

const Route<EventAnswer>* routeOf(const std::string& url) {
    return findRoute<EventAnswer>(kRoutes, url);
}

// The smart capability flags, in output order.
constexpr const char* kSmartCapKeys[] = {
    "isSupportROI",
    "isSupportFaceDetect",
    "isSupportIntelliTrace",
    "isSupportFieldDetection",
    "isSupportDefocusDetection",
    "isSupportAudioDetection",
    "isSupportSceneChangeDetection",
    "isSupportLineDetection",
    "isSupportRegionEntrance",
    "isSupportRegionExiting",
    "isSupportLoitering",
    "isSupportGroup",
    "isSupportRapidMove",
    "isSupportParking",
    "isSupportUnattendedBaggage",
    "isSupportAttendedBaggage",
    "isSupportPeopleDetection",
    "isSupportShipsDetection",
    "isSupportSmartCalibration",
    "isSupportStorageDetection",
    "isSupportShield",
    "isSupportAlgVersion",
    "isSupportVideoOverlap",
    "isSupportParkingState",
    "isSupportChannelResource",
    "isSupportAnalysisUnitSwitch",
    "isSupportHFPD",
    "isSupportImageROI",
    "isSupportLFPD",
};
static_assert(std::size(kSmartCapKeys) == 29);

// Each flag is written when present and must then be a JSON boolean.
template <std::size_t N>
constexpr std::array<Field, N> optionalFlags(const char* const (&names)[N]) {
    std::array<Field, N> rows{};
    for (std::size_t i = 0; i < N; ++i) {
        rows[i] = {.name = names[i], .kind = Kind::kBool, .toXml = Rule::kOptional};
    }
    return rows;
}
constexpr auto kSmartCapRows = optionalFlags(kSmartCapKeys);

constexpr Field kInputPortRows[] = {
    {.name = "id", .kind = Kind::kInt32},
    {.name = "enable", .kind = Kind::kBool, .element = "enabled"},
    {.name = "triggering", .toXml = Rule::kOptional},
    {.name = "name", .toXml = Rule::kOptional},
};

constexpr Field kOutputPortRows[] = {
    {.name = "id", .kind = Kind::kInt32},
    {.name = "enable", .kind = Kind::kBool, .element = "enabled"},
    {.name = "name", .toXml = Rule::kOptional},
};

// The two port lists of IOPortList (nothing when absent; an empty element when not an array).
constexpr Field kPortListRows[] = {
    {.name = "IOInputPortList",
     .kind = Kind::kList,
     .toXml = Rule::kOptional,
     .children = kInputPortRows,
     .item = "IOInputPort"},
    {.name = "IOOutputPortList",
     .kind = Kind::kList,
     .toXml = Rule::kOptional,
     .children = kOutputPortRows,
     .item = "IOOutputPort"},
};

}  // namespace

int CEventCfg::matchURL(const std::string& url, unsigned char method) {
    return matchRoute<EventAnswer>(kRoutes, url, method);
}

int CEventCfg::covertUrlandBody(std::string* jsonUrl, std::string* jsonBody,
                                const ExchangeHolder& exchange, const std::string& devIndex) {
    if (!exchange.exchange) return -1;
    const std::string url = exchange.exchange->getUrl();
    const Route<EventAnswer>* route = routeOf(url);
    if (route == nullptr) return -1;
    if (route->entry == EventAnswer::kTrigger) {
        return covertIOOutputTriggerUrlandBody(jsonUrl, jsonBody, exchange, devIndex);
    }
    return relayWithoutBody(jsonUrl, jsonBody, *route, url, exchange.exchange->getMethod(),
                            devIndex);
}

int CEventCfg::covertRsp(std::string* xmlOut, const Json::Value& root, const std::string& url,
                         int method) {
    const Route<EventAnswer>* route = routeOf(url);
    if (route == nullptr) return kResultNotMine;
    switch (route->entry) {
        case EventAnswer::kSmartCap:
            return covertSmartCapRsp(xmlOut, root);
        case EventAnswer::kIOPortList:
            return covertIOPortListRsp(xmlOut, root);
        case EventAnswer::kDeviceCap:
            *xmlOut = deviceCapDocument();
            return kResultOk;
        case EventAnswer::kTrigger:
            if (method != QXHttpService::kMethodPut) return kResultNotMine;
            *xmlOut = getResponseByError(static_cast<int>(kErrorOk), url);
            return kResultOk;
    }
    return kResultNotMine;
}

int CEventCfg::covertIOOutputTriggerUrlandBody(std::string* jsonUrl, std::string* jsonBody,
                                               const ExchangeHolder& exchange,
                                               const std::string& devIndex) {
    if (const int result = startCommand(jsonUrl, kTriggerRoute, exchange, devIndex)) return result;
    if (exchange.exchange->getMethod() != QXHttpService::kMethodPut) return -1;

    QXBase::CXmlBase doc;
    if (!doc.Parse(exchange.body != nullptr ? exchange.body : "")) {
        QXW_LOG(5, "Parse failed");
        jsonUrl->clear();
        return 1;
    }
    Json::Value body;
    if (doc.FindElem("IOPortData") && doc.IntoElem()) {
        if (!doc.FindElem("outputState")) {
            QXW_LOG(5, "xml cannot find outputState");
            jsonUrl->clear();
            return 1;
        }
        const std::string state = doc.GetData();
        if (state != "high" && state != "low") {
            QXW_LOG(5, "xml outputState is wrong param");
            jsonUrl->clear();
            return 1;
        }
        body["IOPortData"]["outputState"] = state;
    }
    *jsonBody = writeJsonBody(body);
    return 0;
}

int CEventCfg::covertSmartCapRsp(std::string* xmlOut, const Json::Value& root) {
    const Json::Value* smartCap = findMember(root, "SmartCap");
    if (smartCap == nullptr || !isContainer(*smartCap)) {
        return kResultConvertFailed;
    }
    QXBase::CXmlBase doc;
    startDocument(doc, "SmartCap");
    if (!fields::writeFields(doc, *smartCap, kSmartCapRows)) return kResultConvertFailed;
    *xmlOut = doc.WriteToBuf();
    return kResultOk;
}

int CEventCfg::covertIOPortListRsp(std::string* xmlOut, const Json::Value& root) {
    if (!isContainer(root)) return kResultConvertFailed;
    const Json::Value* portList = findMember(root, "IOPortList");
    QXBase::CXmlBase doc;
    doc.CreateDeclaration("1.0", "UTF-8");
    if (portList == nullptr) {
        *xmlOut = doc.WriteToBuf();
        return kResultOk;
    }
    if (!isContainer(*portList)) return kResultConvertFailed;
    doc.CreateRoot("IOPortList");
    if (!fields::writeFields(doc, *portList, kPortListRows)) return kResultConvertFailed;
    *xmlOut = doc.WriteToBuf();
    return kResultOk;
}

const char* CEventCfg::deviceCapDocument() {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
           "<DeviceCap version = \"2.0\"><SysCap><IOCap  version = \"2.0\"></IOCap></SysCap>"
           "</DeviceCap>";
}

}  // namespace QXKORVAProtocol
