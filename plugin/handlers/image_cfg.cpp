#include "plugin/handlers/image_cfg.h"

#include "host/xml_base.h"
#include "plugin/pipeline/error_catalogue.h"
#include "plugin/pipeline/xml_text.h"
#include "plugin/relay/gateway_url.h"
#include "plugin/relay/route_table.h"

namespace QXKORVAProtocol {

namespace {

constexpr const char* kImageCapabilitiesPath = "/KORVA/Image/channels/%d/capabilities";

bool isImageCapabilitiesRequest(const std::string& url, int method) {
    return QXBase::CRESTfulProtocol::cmpURLWithInt(url, kImageCapabilitiesPath, 1) != 0 &&
           method == QXHttpService::kMethodGet;
}

}  // namespace

int CImageCfg::matchURL(const std::string& url, unsigned char method) {
    return isImageCapabilitiesRequest(url, method) ? 0 : -1;
}

int CImageCfg::covertUrlandBody(std::string* jsonUrl, std::string* jsonBody,
                                const ExchangeHolder& exchange, const std::string& devIndex) {
    if (!exchange.exchange) return -1;
    const std::string url = exchange.exchange->getUrl();
    if (!isImageCapabilitiesRequest(url, exchange.exchange->getMethod())) return -1;
    int32_t channel = 0;
    scanUrlInts(url, kImageCapabilitiesPath, &channel, 1);
    const int64_t fields[] = {streamingChannelOf(channel)};
    const std::string gatewayPath = expandIntFields("/KORVA/Streaming/channels/%d", fields, 1);
    if (!makeGatewayUrl(jsonUrl, gatewayPath, devIndex)) return -1;
    jsonBody->clear();
    return 0;
}

int CImageCfg::covertRsp(std::string* xmlOut, const Json::Value&, const std::string& url,
                         int method) {
    if (!isImageCapabilitiesRequest(url, method)) return kResultNotMine;
    covertImageChannelRsp(xmlOut);
    return kResultOk;
}

void CImageCfg::covertImageChannelRsp(std::string* xmlOut) {
    QXBase::CXmlBase doc;
    startDocument(doc, "ImageChannel");
    *xmlOut = doc.WriteToBuf();
}

int64_t CImageCfg::streamingChannelOf(int32_t channel) {
    return channel > 100 ? channel : static_cast<int64_t>(channel) * 100 + 1;
}

}  // namespace QXKORVAProtocol
