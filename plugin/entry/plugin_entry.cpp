// The plug-in's three exported entry points. Everything else of the library is hidden.
#include "plugin/entry/plugin_entry.h"

#include <json/value.h>
#include <json/writer.h>

#include <string>
#include <type_traits>

#include "host/plugin_abi.h"
#include "plugin/alert/event_pto.h"
#include "plugin/entry/handler_chain.h"
#include "plugin/pipeline/error_catalogue.h"

namespace {

// The answer when no handler takes a request: the JSON status of "invalidOperation", one line
// with the members in ascending key order and a line feed.
std::string noHandlerAnswer() {
    Json::Value status;
    int httpStatus = 0;
    QXKORVAProtocol::getJsonResponseByError(QXKORVAProtocol::kErrorInvalidOperation, status,
                                            &httpStatus);
    return Json::FastWriter().write(status);
}

}  // namespace

#define QX_PROTOCOL_EXPORT __attribute__((visibility("default")))

extern "C" {

// Creates the alert service and starts it. Always 1: a failed start is only logged.
QX_PROTOCOL_EXPORT int QX_Protocol_Init() {
    QXKORVAProtocol::CEventPto::getInstance()->start();
    return 1;
}

// Stops the alert service; the instance stays allocated while the library is loaded.
QX_PROTOCOL_EXPORT int QX_Protocol_Uninit() {
    return QXKORVAProtocol::CEventPto::getInstance()->stop();
}

// Offers the request to the device-relay handlers, then to the alert service. Returns the HTTP
// status of the handler that took it, or -1 with *handled = 0 and the no-handler answer.
QX_PROTOCOL_EXPORT int QX_Protocol_HTTPProcess(int* handled, std::string* response, int* asyncReply,
                                               const ExchangeHolder& exchange) {
    if (handled == nullptr || response == nullptr || asyncReply == nullptr) return -1;
    *handled = 1;
    int result = QXKORVAProtocol::procHandlerChain(handled, response, asyncReply, exchange);
    if (result != -1) return result;
    result =
        QXKORVAProtocol::CEventPto::getInstance()->proc(handled, response, asyncReply, exchange);
    if (result != -1) return result;
    *response = noHandlerAnswer();
    *handled = 0;
    return -1;
}

}  // extern "C"

// The declarations the host loads by name must match these definitions.
static_assert(std::is_same_v<decltype(&QX_Protocol_Init), QX_Protocol_Init_Fn>);
static_assert(std::is_same_v<decltype(&QX_Protocol_Uninit), QX_Protocol_Uninit_Fn>);
static_assert(std::is_same_v<decltype(&QX_Protocol_HTTPProcess), QX_Protocol_HTTPProcess_Fn>);
