// Device answers of every relayed route: the first input byte picks the route, the rest is the
// device's answer as the bus delivers it. The relay's completion routine
// (CDevCfgBase::deviceCfgCallBack) parses it, lets the handler chain convert it and answers on
// the request's exchange. Invariants: nothing throws, exactly one answer with a status goes out,
// and an XML answer is a well-formed document (or the declaration alone, where that is defined).
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>

#include "fuzz/fuzz_support.h"
#include "gateway/testing/harness.h"
#include "host/xml_base.h"
#include "plugin/relay/dev_cfg_base.h"
#include "plugin/relay/device_cfg_context.h"

namespace {

using QXHttpService::kMethodDelete;
using QXHttpService::kMethodGet;
using QXHttpService::kMethodPost;
using QXHttpService::kMethodPut;

const struct {
    unsigned char method;
    const char* url;
} kRoutes[] = {
    {kMethodGet, "/KORVA/Streaming/channels/101"},
    {kMethodPut, "/KORVA/Streaming/channels/101"},
    {kMethodGet, "/Streaming/channels/102"},
    {kMethodGet, "/KORVA/Streaming/channels"},
    {kMethodGet, "/KORVA/Streaming/channels/1/capabilities"},
    {kMethodGet, "/KORVA/System/Audio/channels"},
    {kMethodGet, "/KORVA/System/deviceInfo"},
    {kMethodGet, "/KORVA/System/Video/inputs/channels"},
    {kMethodGet, "/KORVA/ContentMgmt/Storage/hdd"},
    {kMethodGet, "/KORVA/Security/adminAccesses"},
    {kMethodGet, "/KORVA/Smart/capabilities"},
    {kMethodGet, "/KORVA/Smart/capabilities/SmartCap"},
    {kMethodGet, "/KORVA/System/IO"},
    {kMethodGet, "/KORVA/System/capabilities"},
    {kMethodPut, "/KORVA/System/IO/outputs/1/trigger"},
    {kMethodGet, "/KORVA/Image/channels/1/capabilities"},
    {kMethodGet, "/KORVA/PTZCtrl/channels"},
    {kMethodPut, "/KORVA/PTZCtrl/channels/1/continuous"},
    {kMethodPut, "/KORVA/PTZCtrl/channels/1/presets/2/goto"},
    {kMethodPut, "/KORVA/PTZCtrl/channels/1/presets/2"},
    {kMethodDelete, "/KORVA/PTZCtrl/channels/1/presets/2"},
    {kMethodPut, "/KORVA/PTZCtrl/channels/1/homeposition/goto"},
    {kMethodPost, "/KORVA/ContentMgmt/search"},
};

// The document holding only the XML declaration: the defined answer of a list the device left
// out (the I/O port list, for one).
bool declarationOnly(const std::string& body) {
    const size_t end = body.find_last_not_of(" \r\n");
    return body.rfind("<?xml", 0) == 0 && end != std::string::npos &&
           body.compare(end - 1, 2, "?>") == 0 && body.find('<', 1) == std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    korva::fuzz::quietHostLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const auto& route = kRoutes[data[0] % std::size(kRoutes)];
    korva::testing::TestRequest request(route.method, route.url);
    DeviceCfgContext* context = QXKORVAProtocol::allocateDeviceCfgContext();
    korva::fuzz::require(context != nullptr, "no relay context");
    context->httpHandle = request.handle();
    context->handler = &request;  // only tested for null by the routine
    const std::string answer(reinterpret_cast<const char*>(data) + 1, size - 1);
    const int result = QXKORVAProtocol::CDevCfgBase::deviceCfgCallBack(
        answer.data(), static_cast<int>(answer.size()), context);

    const korva::testing::RecordingExchange& exchange = request.exchange();
    korva::fuzz::require(result == 0, "completion routine refused its own context");
    korva::fuzz::require(exchange.respondCount() == 1 && exchange.status() != 0,
                         "not exactly one answer with a status", route.url);
    const std::string body = exchange.written();
    if (exchange.answerHeader("Content-Type") == "application/xml" && !body.empty() &&
        !declarationOnly(body)) {
        QXBase::CXmlBase document;
        korva::fuzz::require(document.Parse(body), "XML answer is not well-formed", body);
    }
    return 0;
}
