// The request half of the device relay: translate, hand the request to the device
// configuration bus and return at once. The answer half is device_answer.cpp.
#include "plugin/relay/dev_cfg_base.h"

#include <exception>

#include "plugin/pipeline/error_catalogue.h"
#include "plugin/pipeline/plugin_log.h"
#include "plugin/relay/device_cfg_context.h"

namespace QXKORVAProtocol {
namespace {

constexpr int kRelayTimeoutMs = 10000;
constexpr int kCategoryDeviceError = 3;
constexpr int kStatusAccepted = 200;

}  // namespace

int CDevCfgBase::prepareAsynRequest(DeviceCfgContext*, std::string*, int*,
                                    QXHttpService::CHttpExchange*) {
    return 1;
}

int CDevCfgBase::procProtocol(int*, std::string* response, int* asyncReply,
                              const ExchangeHolder& exchange, const std::string& devIndex) {
    QXHttpService::CHttpExchange& http = *exchange.exchange;
    const std::string url = http.getUrl();
    const unsigned char method = http.getMethod();

    std::string jsonUrl;
    std::string jsonBody;
    int converted = -1;
    try {
        converted = covertUrlandBody(&jsonUrl, &jsonBody, exchange, devIndex);
    } catch (const std::exception& error) {
        // A conversion must not throw; treat it as a refused request.
        QXW_LOG(5, "[url=%s]request conversion failed: %s", url.c_str(), error.what());
    }
    if (converted != 0) {
        *response = getResponseByError(kErrorInternal, url);
        return getHttpStatusByCategory(kCategoryDeviceError);
    }

    DeviceCfgContext* context = allocateDeviceCfgContext();
    if (context == nullptr) {
        QXW_LOG(5, "no resouce.");
        *response = getResponseByError(kErrorBadParameters, url);
        return getHttpStatusByErrorNo(kErrorBadParameters);
    }
    context->httpHandle = http.getHttpHandle();
    context->handler = this;
    int timeoutMs = kRelayTimeoutMs;

    if (prepareAsynRequest(context, &jsonBody, &timeoutMs, &http) == 0) {
        QXW_LOG(5, "no resouce.");
        *response = getResponseByError(kErrorBadParameters, url);
        releaseDeviceCfgContext(context);
        return getHttpStatusByErrorNo(kErrorBadParameters);
    }

    QXW_LOG(3, "[url=%s,handle=%d]QX_DeviceCfgBus_ProcessAsyn start", jsonUrl.c_str(),
            context->httpHandle);
    const int result = QX_DeviceCfgBus_ProcessAsyn(method, jsonUrl, jsonBody, &deviceCfgCallBack,
                                                   context, timeoutMs);
    if (result == 0) {
        // The context is the host's now; the callback may already have released it.
        *asyncReply = 1;
        return kStatusAccepted;
    }

    const uint32_t errorNumber = getErrorNoByResult(result);
    *response = getResponseByError(static_cast<int>(errorNumber), url);
    releaseDeviceCfgContext(context);
    return getHttpStatusByErrorNo(errorNumber);
}

}  // namespace QXKORVAProtocol
