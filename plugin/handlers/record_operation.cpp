#include "plugin/handlers/record_operation.h"

#include "plugin/pipeline/error_catalogue.h"
#include "plugin/relay/gateway_url.h"

namespace QXKORVAProtocol {

namespace {

bool isSearchPath(const std::string& url) {
    return QXBase::CRESTfulProtocol::cmpURL(url, "/KORVA/ContentMgmt/search") != 0 ||
           QXBase::CRESTfulProtocol::cmpURL(url, "/KORVA/ContentMgmt/search/") != 0;
}

}  // namespace

int CRecordOperation::matchURL(const std::string& url, unsigned char method) {
    return isSearchPath(url) && method == QXHttpService::kMethodPost ? 0 : -1;
}

int CRecordOperation::covertUrlandBody(std::string* jsonUrl, std::string* jsonBody,
                                       const ExchangeHolder& exchange,
                                       const std::string& devIndex) {
    if (!exchange.exchange || !isSearchPath(exchange.exchange->getUrl())) return -1;
    if (!makeGatewayUrl(jsonUrl, "/KORVA/ContentMgmt/search", devIndex)) return -1;
    if (exchange.exchange->getMethod() != QXHttpService::kMethodPost) return -1;
    *jsonBody = covertSearchDescription(exchange.body);
    return jsonBody->empty() ? static_cast<int>(kErrorBadParameters) : 0;
}

int CRecordOperation::covertRsp(std::string* xmlOut, const Json::Value& root,
                                const std::string& url, int method) {
    if (!isSearchPath(url) || method != QXHttpService::kMethodPost) return kResultNotMine;
    return covertSearchResultRsp(xmlOut, root);
}

}  // namespace QXKORVAProtocol
