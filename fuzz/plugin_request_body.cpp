// Request bodies of every PUT and POST route of the plug-in: the first input byte picks the
// route, the rest is the body the client sent. The request is offered to the device-relay
// handlers in chain order; the one whose matchURL takes it converts it with covertUrlandBody.
// Invariants: nothing throws; a converted request names a gateway URL of the bound device and
// carries a JSON body (or none).
#include <json/reader.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <string>

#include "fuzz/fuzz_support.h"
#include "gateway/testing/harness.h"
#include "plugin/relay/dev_cfg_base.h"
#include "plugin/relay/handler_order.h"

namespace {

using QXKORVAProtocol::CDevCfgBase;

constexpr const char* kDevice = "dev-1";

const struct {
    unsigned char method;
    const char* url;
} kRoutes[] = {
    {QXHttpService::kMethodPut, "/KORVA/Streaming/channels/101"},
    {QXHttpService::kMethodPut, "/Streaming/channels/102"},
    {QXHttpService::kMethodPut, "/KORVA/System/IO/outputs/1/trigger"},
    {QXHttpService::kMethodPut, "/KORVA/PTZCtrl/channels/1/continuous"},
    {QXHttpService::kMethodPut, "/KORVA/PTZCtrl/channels/1/presets/2/goto"},
    {QXHttpService::kMethodPut, "/KORVA/PTZCtrl/channels/1/presets/2"},
    {QXHttpService::kMethodPut, "/KORVA/PTZCtrl/channels/1/homeposition/goto"},
    {QXHttpService::kMethodPost, "/KORVA/ContentMgmt/search"},
};

bool isJson(const std::string& text) {
    Json::Value parsed;
    return Json::Reader().parse(text, parsed, false);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    korva::fuzz::quietHostLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const auto& route = kRoutes[data[0] % std::size(kRoutes)];
    korva::testing::TestRequest request(
        route.method, route.url, std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
    size_t count = 0;
    const QXKORVAProtocol::DevCfgHandlerFactory* factories =
        QXKORVAProtocol::devCfgHandlerOrder(&count);
    for (size_t i = 0; i < count; ++i) {
        const std::unique_ptr<CDevCfgBase> handler = factories[i]();
        if (handler->matchURL(route.url, route.method) == -1) continue;
        std::string jsonUrl;
        std::string jsonBody;
        const int result =
            handler->covertUrlandBody(&jsonUrl, &jsonBody, request.holder(), kDevice);
        if (result != 0) return 0;
        korva::fuzz::require(
            jsonUrl.rfind("/KORVA/", 0) == 0 &&
                jsonUrl.find(std::string("devIndex=") + kDevice) != std::string::npos,
            "converted request without a gateway URL", jsonUrl);
        korva::fuzz::require(jsonBody.empty() || isJson(jsonBody),
                             "converted request body is not JSON", jsonBody);
        return 0;
    }
    korva::fuzz::require(false, "no handler takes the route", route.url);
    return 0;
}
