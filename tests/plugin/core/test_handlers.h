// Test-only handlers claiming URLs no real handler serves, to drive the pipeline and the relay.
#pragma once

#include <string>

#include "gateway/testing/harness.h"
#include "host/http_exchange.h"
#include "plugin/pipeline/protocol_base.h"
#include "plugin/relay/dev_cfg_base.h"
#include "plugin/relay/gateway_url.h"

namespace QXKORVAProtocol::testing {

inline constexpr const char* kProbeUrl = "/KORVA/Test/probe";
inline constexpr const char* kRelayUrl = "/KORVA/Test/relay";

// Claims GET kProbeUrl and answers with a fixed result, recording the device it was given.
class ProbeHandler : public CProtocolBase {
  public:
    explicit ProbeHandler(int result = 200) : m_result(result) {}
    int matchURL(const std::string& url, unsigned char method) override {
        return cmpURL(url, kProbeUrl) && method == QXHttpService::kMethodGet ? 0 : -1;
    }
    int procProtocol(int*, std::string* response, int*, const ExchangeHolder&,
                     const std::string& boundDevice) override {
        ++calls;
        devIndex = boundDevice;
        *response = "probe answer";
        return m_result;
    }
    int calls = 0;
    std::string devIndex;

  private:
    int m_result;
};

// Claims kRelayUrl (any method) and relays it to the request's device or to targetDevice;
// conversion and preparation can be made to fail.
class RelayHandler : public CDevCfgBase {
  public:
    int matchURL(const std::string& url, unsigned char) override {
        return cmpURL(url, kRelayUrl) ? 0 : -1;
    }
    int covertRsp(std::string*, const Json::Value&, const std::string&, int) override { return -1; }
    int covertUrlandBody(std::string* jsonUrl, std::string* jsonBody, const ExchangeHolder&,
                         const std::string& devIndex) override {
        if (convertResult != 0) return convertResult;
        const std::string target = targetDevice.empty() ? devIndex : targetDevice;
        if (!formatGatewayUrl(jsonUrl, "%s?format=json&devIndex=%s", kRelayUrl, target.c_str())) {
            return 1;
        }
        *jsonBody = "{\"probe\":true}\n";
        return 0;
    }
    int prepareAsynRequest(DeviceCfgContext* context, std::string*, int* timeoutMs,
                           QXHttpService::CHttpExchange* exchange) override {
        preparedTimeoutMs = *timeoutMs;
        preparedOwnExchange =
            exchange != nullptr && exchange->getHttpHandle() == context->httpHandle;
        if (timeoutOverride != 0) *timeoutMs = timeoutOverride;
        return prepareResult;
    }
    int convertResult = 0, prepareResult = 1, timeoutOverride = 0;
    std::string targetDevice;
    int preparedTimeoutMs = 0;
    bool preparedOwnExchange = false;
};

// What one proc call left behind; the initial values are ones the pipeline never writes.
struct Outcome {
    int status = 0;
    std::string response = "untouched";
    int handled = 7;
    int asyncReply = 0;
};

inline Outcome run(CProtocolBase& handler, const korva::testing::TestRequest& request) {
    Outcome outcome;
    outcome.status =
        handler.proc(&outcome.handled, &outcome.response, &outcome.asyncReply, request.holder());
    return outcome;
}

}  // namespace QXKORVAProtocol::testing
