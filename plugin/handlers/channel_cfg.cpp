// Routes of CChannelCfg: which requests it takes, the gateway request each one becomes, and the
// converter of each route's answer.
#include "plugin/handlers/channel_cfg.h"

#include <climits>
#include <cstring>

#include "host/http_exchange.h"
#include "plugin/handlers/channel_fields.h"
#include "plugin/pipeline/error_catalogue.h"
#include "plugin/relay/gateway_url.h"

namespace QXKORVAProtocol {
namespace {

enum class Route { kNone, kChannel, kChannelList, kCapabilities, kAudioChannels };

constexpr unsigned kGet = 1u << QXHttpService::kMethodGet;
constexpr unsigned kPut = 1u << QXHttpService::kMethodPut;

struct RouteRow {
    Route route;
    const char* pattern;
    int integerCount;  // number of "%d" in pattern
    unsigned methods;  // bit (1 << method code) per accepted method
};

// Tried in this order; the paths are matched exactly, so at most one row fits a URL.
constexpr RouteRow kRoutes[] = {
    {Route::kChannel, "/KORVA/Streaming/channels/%d", 1, kGet | kPut},
    {Route::kChannel, "/Streaming/channels/%d", 1, kGet | kPut},
    {Route::kChannelList, "/KORVA/Streaming/channels", 0, kGet},
    {Route::kCapabilities, "/KORVA/Streaming/channels/%d/capabilities", 1, kGet},
    {Route::kAudioChannels, "/KORVA/System/Audio/channels", 0, kGet},
};

const RouteRow* findRoute(const std::string& url) {
    for (const RouteRow& row : kRoutes) {
        const int match = row.integerCount == 0 ? QXBase::CRESTfulProtocol::cmpURL(url, row.pattern)
                                                : QXBase::CRESTfulProtocol::cmpURLWithInt(
                                                      url, row.pattern, row.integerCount);
        if (match != 0) return &row;
    }
    return nullptr;
}

Route routeOf(const std::string& url) {
    const RouteRow* row = findRoute(url);
    return row ? row->route : Route::kNone;
}

// The number after prefix at the start of url, read like scanf's "%d" (leading white space,
// sign, digits; clamped to 32 bits); 0 when url does not start with prefix or no digit follows.
int scanNumberAfter(const std::string& url, const char* prefix) {
    const size_t length = std::strlen(prefix);
    if (url.compare(0, length, prefix) != 0) return 0;
    return channel::leadingInt(url.substr(length));
}

bool isGet(int method) {
    return method == QXHttpService::kMethodGet;
}

}  // namespace

int CChannelCfg::matchURL(const std::string& url, unsigned char method) {
    const RouteRow* row = findRoute(url);
    if (row == nullptr || method >= 32 || (row->methods & (1u << method)) == 0) {
        return kResultNotMine;
    }
    return kResultOk;
}

int CChannelCfg::covertUrlandBody(std::string* jsonUrl, std::string* jsonBody,
                                  const ExchangeHolder& exchange, const std::string& devIndex) {
    if (!exchange.exchange) return kResultNotMine;
    const std::string url = exchange.exchange->getUrl();
    const int method = exchange.exchange->getMethod();
    jsonBody->clear();  // only a channel update carries a body
    switch (routeOf(url)) {
        case Route::kChannel:
            return covertChannelIDUrlandBody(jsonUrl, jsonBody, url, method, exchange.body,
                                             devIndex);
        case Route::kChannelList:
            return covertChannelListUrl(jsonUrl, method, devIndex);
        case Route::kCapabilities:
            return covertChannelIDCapUrl(jsonUrl, url, method, devIndex);
        case Route::kAudioChannels:
            return covertAudioChannelsUrl(jsonUrl, method, devIndex);
        case Route::kNone:
            break;
    }
    return kResultNotMine;
}

int CChannelCfg::covertRsp(std::string* xmlOut, const Json::Value& root, const std::string& url,
                           int method) {
    switch (routeOf(url)) {
        case Route::kChannel:
            return covertChannelIDRspBody(xmlOut, root, url, method);
        case Route::kChannelList:
            if (!isGet(method)) return kResultNotMine;
            return getXmlStreamingChannelList(xmlOut, root) == kResultOk ? kResultOk
                                                                         : kResultConvertFailed;
        case Route::kCapabilities:
            return covertChannelIDCapRspBody(xmlOut, root, method);
        case Route::kAudioChannels:
            if (!isGet(method)) return kResultNotMine;
            return getXmlAudioChannelList(xmlOut, root) == kResultOk ? kResultOk
                                                                     : kResultConvertFailed;
        case Route::kNone:
            break;
    }
    return kResultNotMine;
}

int CChannelCfg::translateChannelNumber(int channel) {
    if (channel > 100) return channel;
    const long long id = static_cast<long long>(channel) * 100 + 1;
    return id < INT_MIN ? INT_MIN : static_cast<int>(id);
}

int CChannelCfg::covertChannelIDUrlandBody(std::string* jsonUrl, std::string* jsonBody,
                                           const std::string& url, int method, const char* body,
                                           const std::string& devIndex) {
    if (method != QXHttpService::kMethodGet && method != QXHttpService::kMethodPut) {
        return kResultNotMine;
    }
    // The URL is read with the pattern of the path form it uses.
    const char* prefix = url.find("KORVA") != std::string::npos ? "/KORVA/Streaming/channels/"
                                                                : "/Streaming/channels/";
    const int id = translateChannelNumber(scanNumberAfter(url, prefix));
    if (!formatGatewayUrl(jsonUrl, "/KORVA/Streaming/channels/%d?format=json&devIndex=%s", id,
                          devIndex.c_str())) {
        return kResultConvertFailed;
    }
    if (method == QXHttpService::kMethodGet) {
        jsonBody->clear();
        return kResultOk;
    }
    return getJsonStreamingChannel(jsonBody, body ? body : "") == kResultOk ? kResultOk
                                                                            : kResultConvertFailed;
}

int CChannelCfg::covertChannelListUrl(std::string* jsonUrl, int method,
                                      const std::string& devIndex) {
    if (!isGet(method)) return kResultNotMine;
    return formatGatewayUrl(jsonUrl, "/KORVA/Streaming/channels?format=json&devIndex=%s",
                            devIndex.c_str())
               ? kResultOk
               : kResultConvertFailed;
}

int CChannelCfg::covertChannelIDCapUrl(std::string* jsonUrl, const std::string& url, int method,
                                       const std::string& devIndex) {
    if (!isGet(method)) return kResultNotMine;
    // No stream translation here: the device is asked about the channel number as given.
    const int channel = scanNumberAfter(url, "/KORVA/Streaming/channels/");
    return formatGatewayUrl(jsonUrl,
                            "/KORVA/Streaming/channels/%d/capabilities?format=json&devIndex=%s",
                            channel, devIndex.c_str())
               ? kResultOk
               : kResultConvertFailed;
}

int CChannelCfg::covertAudioChannelsUrl(std::string* jsonUrl, int method,
                                        const std::string& devIndex) {
    if (!isGet(method)) return kResultNotMine;
    // The device has no audio channel resource; its video inputs stand for them.
    return formatGatewayUrl(jsonUrl, "/KORVA/System/Video/inputs/channels?format=json&devIndex=%s",
                            devIndex.c_str())
               ? kResultOk
               : kResultConvertFailed;
}

int CChannelCfg::covertChannelIDRspBody(std::string* xmlOut, const Json::Value& root,
                                        const std::string& url, int method) {
    switch (method) {
        case QXHttpService::kMethodGet:
            return getXmlStreamingChannel(xmlOut, root) == kResultOk ? kResultOk
                                                                     : kResultConvertFailed;
        case QXHttpService::kMethodPut:
            // The device accepted the update; whatever it sent back, the client gets "OK".
            *xmlOut = getResponseByError(kErrorOk, url);
            return kResultOk;
        default:
            return kResultNotMine;
    }
}

}  // namespace QXKORVAProtocol
