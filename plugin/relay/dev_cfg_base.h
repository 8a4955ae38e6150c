// CDevCfgBase: base of the device-relay handlers. procProtocol turns an authenticated KORVA
// request into the gateway's JSON request (through the subclass's covertUrlandBody), relays it
// with QX_DeviceCfgBus_ProcessAsyn and returns at once; deviceCfgCallBack later turns the
// device's JSON answer into the KORVA answer (through covertRspChain) on the same exchange.
//
// Subclass contract:
//  - matchURL decides from the URL path and method code alone.
//  - covertUrlandBody builds the gateway URL ("...?format=json&devIndex=<devIndex>", see
//    gateway_url.h) and the JSON body (empty for reads). 0 = converted, anything else = refused.
//  - covertRsp runs on a fresh instance with no memory of the request and decides from url and
//    method exactly as matchURL did: -1 = not mine, 0 = converted, other = result code (9).
// Thread safety: instances live for one call; the callback may run on any bus thread, even
// before procProtocol has returned.
#pragma once

#include <json/value.h>

#include <string>

#include "host/device_cfg_bus.h"
#include "host/http_exchange.h"
#include "plugin/pipeline/protocol_base.h"

namespace QXKORVAProtocol {

class CDevCfgBase : public CProtocolBase {
  public:
    int procProtocol(int* handled, std::string* response, int* asyncReply,
                     const ExchangeHolder& exchange, const std::string& devIndex) final;

    virtual int covertRsp(std::string* xmlOut, const Json::Value& root, const std::string& url,
                          int method) = 0;
    virtual int covertUrlandBody(std::string* jsonUrl, std::string* jsonBody,
                                 const ExchangeHolder& exchange, const std::string& devIndex) = 0;
    // Last chance to adjust the relay; nonzero = go on, 0 = refuse. The base returns 1.
    virtual int prepareAsynRequest(DeviceCfgContext* context, std::string* jsonBody, int* timeoutMs,
                                   QXHttpService::CHttpExchange* exchange);

    // Completion routine handed to the bus; userData is the DeviceCfgContext, released here.
    // 0 handled, -1 unusable context.
    static int deviceCfgCallBack(const char* data, int length, void* userData);

    // Offers the answer to covertRsp of a fresh instance of each handler in chain order; the
    // first result other than -1, or -1.
    static int covertRspChain(std::string* xmlOut, const Json::Value& root, const std::string& url,
                              int method);
};

}  // namespace QXKORVAProtocol
