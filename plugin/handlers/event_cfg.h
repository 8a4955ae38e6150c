// CEventCfg: smart and system capabilities, I/O ports and the I/O output trigger.
// The system capability resource relays the smart-capability read and answers a fixed
// document; the trigger relays the requested output state and answers the success document.
// Stateless: one instance per request or per answer conversion.
#pragma once

#include <json/value.h>

#include <string>

#include "plugin/relay/dev_cfg_base.h"

namespace QXKORVAProtocol {

class CEventCfg : public CDevCfgBase {
  public:
    int matchURL(const std::string& url, unsigned char method) override;
    int covertRsp(std::string* xmlOut, const Json::Value& root, const std::string& url,
                  int method) override;
    int covertUrlandBody(std::string* jsonUrl, std::string* jsonBody,
                         const ExchangeHolder& exchange, const std::string& devIndex) override;

    // The trigger request: 0 relay, 1 body refused (*jsonUrl emptied), -1 method is not PUT.
    int covertIOOutputTriggerUrlandBody(std::string* jsonUrl, std::string* jsonBody,
                                        const ExchangeHolder& exchange,
                                        const std::string& devIndex);

    // Answer converters: 0 converted into *xmlOut, 9 failed (*xmlOut untouched).
    int covertSmartCapRsp(std::string* xmlOut, const Json::Value& root);
    int covertIOPortListRsp(std::string* xmlOut, const Json::Value& root);

    // The system capability answer: one fixed document.
    static const char* deviceCapDocument();
};

}  // namespace QXKORVAProtocol
