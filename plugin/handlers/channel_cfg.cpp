// Routes of CChannelCfg: which requests it takes, the gateway request each one becomes, and the
// converter of each route's answer.
#include "plugin/handlers/channel_cfg.h"

#include <climits>
#include <cstdint>

#include "host/http_exchange.h"
#include "plugin/pipeline/error_catalogue.h"
#include "plugin/relay/gateway_url.h"
#include "plugin/relay/route_table.h"

namespace QXKORVAProtocol {
namespace {

enum class ChannelRoute { kChannel, kChannelList, kCapabilities, kAudioChannels };

// The device has no audio channel resource; its video inputs stand for them. The channel row's
// gateway number is the translated channel number (covertChannelIDUrlandBody); the capabilities
// row asks the device about the channel number as given.
constexpr Route<ChannelRoute> kRoutes[] = {
    {"/KORVA/Streaming/channels/%d", kGetBit | kPutBit, "/KORVA/Streaming/channels/%d",
     ChannelRoute::kChannel},
    {"/Streaming/channels/%d", kGetBit | kPutBit, "/KORVA/Streaming/channels/%d",
     ChannelRoute::kChannel},
    {"/KORVA/Streaming/channels", kGetBit, "/KORVA/Streaming/channels", ChannelRoute::kChannelList},
    {"/KORVA/Streaming/channels/%d/capabilities", kGetBit,
     "/KORVA/Streaming/channels/%d/capabilities", ChannelRoute::kCapabilities},
    {"/KORVA/System/Audio/channels", kGetBit, "/KORVA/System/Video/inputs/channels",
     ChannelRoute::kAudioChannels},
};
constexpr const Route<ChannelRoute>& kKorvaChannelRoute = kRoutes[0];
constexpr const Route<ChannelRoute>& kShortChannelRoute = kRoutes[1];
static_assert(kKorvaChannelRoute.entry == ChannelRoute::kChannel &&
              kShortChannelRoute.entry == ChannelRoute::kChannel);

const Route<ChannelRoute>* routeOf(const std::string& url) {
    return findRoute<ChannelRoute>(kRoutes, url);
}

bool isGet(int method) {
    return method == QXHttpService::kMethodGet;
}

}  // namespace

int CChannelCfg::matchURL(const std::string& url, unsigned char method) {
    return matchRoute<ChannelRoute>(kRoutes, url, method);
}

int CChannelCfg::covertUrlandBody(std::string* jsonUrl, std::string* jsonBody,
                                  const ExchangeHolder& exchange, const std::string& devIndex) {
    if (!exchange.exchange) return kResultNotMine;
    const std::string url = exchange.exchange->getUrl();
    const int method = exchange.exchange->getMethod();
    jsonBody->clear();  // only a channel update carries a body
    const Route<ChannelRoute>* route = routeOf(url);
    if (route == nullptr) return kResultNotMine;
    if (route->entry == ChannelRoute::kChannel) {
        return covertChannelIDUrlandBody(jsonUrl, jsonBody, url, method, exchange.body, devIndex);
    }
    return relayWithoutBody(jsonUrl, jsonBody, *route, url, method, devIndex);
}

int CChannelCfg::covertRsp(std::string* xmlOut, const Json::Value& root, const std::string& url,
                           int method) {
    const Route<ChannelRoute>* route = routeOf(url);
    if (route == nullptr) return kResultNotMine;
    switch (route->entry) {
        case ChannelRoute::kChannel:
            return covertChannelIDRspBody(xmlOut, root, url, method);
        case ChannelRoute::kChannelList:
            if (!isGet(method)) return kResultNotMine;
            return getXmlStreamingChannelList(xmlOut, root) == kResultOk ? kResultOk
                                                                         : kResultConvertFailed;
        case ChannelRoute::kCapabilities:
            return covertChannelIDCapRspBody(xmlOut, root, method);
        case ChannelRoute::kAudioChannels:
            if (!isGet(method)) return kResultNotMine;
            return getXmlAudioChannelList(xmlOut, root) == kResultOk ? kResultOk
                                                                     : kResultConvertFailed;
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
    // The URL is read with the pattern of the path form it seems to use.
    const Route<ChannelRoute>& route =
        url.find("KORVA") != std::string::npos ? kKorvaChannelRoute : kShortChannelRoute;
    int32_t channel = 0;
    scanUrlInts(url, route.path, &channel, 1);
    const int64_t id[] = {translateChannelNumber(channel)};
    if (!makeGatewayUrl(jsonUrl, expandIntFields(route.gatewayPath, id, 1), devIndex)) {
        return kResultConvertFailed;
    }
    if (method == QXHttpService::kMethodGet) {
        jsonBody->clear();
        return kResultOk;
    }
    return getJsonStreamingChannel(jsonBody, body ? body : "") == kResultOk ? kResultOk
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
