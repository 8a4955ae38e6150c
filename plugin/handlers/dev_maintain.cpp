#include "plugin/handlers/dev_maintain.h"

#include <memory>

#include "host/config_mgr.h"
#include "host/kvl_runtime.h"
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

enum class MaintainAnswer { kDeviceInfo, kVideoInputs, kStorage, kAdminAccesses };

// GET only. The storage and admin access resources relay the device-information read.
constexpr Route<MaintainAnswer> kRoutes[] = {
    {"/KORVA/System/deviceInfo", kGetBit, "/KORVA/System/deviceInfo", MaintainAnswer::kDeviceInfo},
    {"/KORVA/System/Video/inputs/channels", kGetBit, "/KORVA/System/Video/inputs/channels",
     MaintainAnswer::kVideoInputs},
    {"/KORVA/ContentMgmt/Storage/hdd", kGetBit, "/KORVA/System/deviceInfo",
     MaintainAnswer::kStorage},
    {"/KORVA/Security/adminAccesses", kGetBit, "/KORVA/System/deviceInfo",
     MaintainAnswer::kAdminAccesses},
};

const Route<MaintainAnswer>* routeOf(const std::string& url) {
    return findRoute<MaintainAnswer>(kRoutes, url);
}

// failCode is the number of the log message of a bad member.
constexpr Field kDeviceInfoRows[] = {
    {.name = "deviceName", .kind = Kind::kStringOrNull, .failCode = 2},
    {.name = "deviceID", .kind = Kind::kStringOrNull, .failCode = 3},
    {.name = "deviceDescription", .kind = Kind::kFixedText, .fixedText = "IPCamera"},
    {.name = "model", .kind = Kind::kFixedText, .fixedText = "QM-VT4407"},
    {.name = "serialNumber", .kind = Kind::kStringOrNull, .failCode = 5},
    {.name = "macAddress", .kind = Kind::kStringOrNull, .failCode = 6},
    {.name = "firmwareVersion", .kind = Kind::kStringOrNull, .failCode = 7},
    {.name = "firmwareReleasedDate", .toXml = Rule::kWhenTyped},
    {.name = "bootVersion", .toXml = Rule::kWhenTyped},
    {.name = "deviceType", .kind = Kind::kStringOrNull, .failCode = 9},
};

constexpr Field kVideoInputRows[] = {
    {.name = "id", .kind = Kind::kStringOrNull, .failCode = 4},
    {.name = "inputPort", .kind = Kind::kStringOrNull, .failCode = 5},
    {.name = "name", .toXml = Rule::kWhenTyped},
};

// The fixed storage document: the declaration, then every piece preceded by 20 blanks.
constexpr const char* kStorageNamespace10 = "http://www.korva-gateway.example/ver10/XMLSchema";
constexpr const char* kStorageNamespace20 = "http://www.korva-gateway.example/ver20/XMLSchema";

std::string buildStorageDocument() {
    const std::string pieces[] = {
        std::string("<hddList version=\"1.0\" xmlns=\"") + kStorageNamespace10 + "\"  size=\"8\">",
        std::string("<hdd  version=\"2.0\" xmlns=\"") + kStorageNamespace20 + "\">",
        "<id>1</id>",
        "<hddName>hdde</hddName>",
        "<hddPath></hddPath>",
        "<hddType>SATA</hddType>",
        "<status>ok</status>",
        "<capacity>121942</capacity>",
        "<freeSpace>87296</freeSpace>",
        "<property>RW</property>",
        "<property>RW</property>",
        "</hdd>",
        "</hddList>",
    };
    std::string doc = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
    for (const std::string& piece : pieces) doc.append(20, ' ').append(piece);
    return doc;
}

std::string portText(uint16_t port) {
    char buffer[34] = {};
    return KVL_Itoa(port, buffer, 10);
}

}  // namespace

int CDevMaintain::matchURL(const std::string& url, unsigned char method) {
    return matchRoute<MaintainAnswer>(kRoutes, url, method);
}

int CDevMaintain::covertUrlandBody(std::string* jsonUrl, std::string* jsonBody,
                                   const ExchangeHolder& exchange, const std::string& devIndex) {
    if (!exchange.exchange) return -1;
    const std::string url = exchange.exchange->getUrl();
    const Route<MaintainAnswer>* route = routeOf(url);
    if (route == nullptr) return -1;
    return relayWithoutBody(jsonUrl, jsonBody, *route, url, exchange.exchange->getMethod(),
                            devIndex);
}

int CDevMaintain::covertRsp(std::string* xmlOut, const Json::Value& root, const std::string& url,
                            int method) {
    const Route<MaintainAnswer>* route = routeOf(url);
    if (route == nullptr || !route->accepts(method)) return kResultNotMine;
    bool converted = false;
    switch (route->entry) {
        case MaintainAnswer::kDeviceInfo:
            converted = covertDevinfoRsp(xmlOut, root);
            break;
        case MaintainAnswer::kVideoInputs:
            converted = covertVideoChannelRsp(xmlOut, root);
            break;
        case MaintainAnswer::kStorage:
            *xmlOut = storageDocument();
            converted = true;
            break;
        case MaintainAnswer::kAdminAccesses:
            converted = covertAdminAccessesRsp(xmlOut);
            break;
    }
    return converted ? kResultOk : kResultConvertFailed;
}

bool CDevMaintain::covertDevinfoRsp(std::string* xmlOut, const Json::Value& root) {
    const Json::Value* info = findMember(root, "DeviceInfo");
    if (info == nullptr || !info->isObject()) {
        QXW_LOG(5, "covertDevinfoRsp fail 1.");
        return false;
    }
    QXBase::CXmlBase doc;
    startDocument(doc, "DeviceInfo");
    const Field* failed = nullptr;
    if (!fields::writeFields(doc, *info, kDeviceInfoRows, &failed)) {
        QXW_LOG(5, "covertDevinfoRsp fail %d.", failed != nullptr ? failed->failCode : 0);
        return false;
    }
    *xmlOut = doc.WriteToBuf();
    return true;
}

bool CDevMaintain::covertVideoChannelRsp(std::string* xmlOut, const Json::Value& root) {
    const Json::Value* list = findMember(root, "VideoInputChannelList");
    if (list == nullptr) {
        QXW_LOG(5, "covertVideoChannelRsp fail 1.");
        return false;
    }
    QXBase::CXmlBase doc;
    startDocument(doc, "VideoInputChannelList");
    if (!list->isArray()) {
        QXW_LOG(4, "covertVideoChannelRsp fail 2 and return null list.");
        *xmlOut = doc.WriteToBuf();
        return true;
    }
    const Field* failed = nullptr;
    if (!fields::writeItems(doc, *list, "VideoInputChannel", kVideoInputRows, &failed)) {
        // 3: an entry without a usable VideoInputChannel.
        QXW_LOG(5, "covertVideoChannelRsp fail %d.", failed != nullptr ? failed->failCode : 3);
        return false;
    }
    *xmlOut = doc.WriteToBuf();
    return true;
}

bool CDevMaintain::covertAdminAccessesRsp(std::string* xmlOut) {
    std::shared_ptr<QXConfigMgr::CNetworkCfg> network = QX_GatewayCfgBus_GetAccessProtocol();
    if (!network) {
        QXW_LOG(5, "get networkCfg ptr error.");
        return false;
    }
    const bool mapped = network->isPlatformPortMapping() != 0;
    const uint16_t httpPort = mapped ? network->getExtHttpPort() : network->getHttpPort();
    const uint16_t httpsPort = mapped ? network->getExtHttpsPort() : network->getHttpsPort();
    const uint16_t rtspPort = mapped ? network->getExtRtspPort() : network->getRtspPort();
    const struct {
        const char* id;
        bool enabled;
        const char* protocol;
        uint16_t port;
    } entries[] = {
        {"1", true, "HTTP", httpPort},
        {"2", true, "RTSP", rtspPort},
        {"3", network->getHttpsEnable() != 0, "HTTPS", httpsPort},
    };
    network.reset();

    QXBase::CXmlBase doc;
    startDocument(doc, "AdminAccessProtocolList");
    for (const auto& entry : entries) {
        doc.AddNode("AdminAccessProtocol");
        addTextElement(doc, "id", entry.id);
        addTextElement(doc, "enabled", boolText(entry.enabled));
        addTextElement(doc, "protocol", entry.protocol);
        addTextElement(doc, "portNo", portText(entry.port));
        doc.OutOfElem();
    }
    *xmlOut = doc.WriteToBuf();
    return true;
}

const std::string& CDevMaintain::storageDocument() {
    static const std::string document = buildStorageDocument();
    return document;
}

}  // namespace QXKORVAProtocol
