// CPTZCtrl: PTZ channels, continuous move, presets and home position.
// The channel list is translated from the device's answer; the commands relay a small JSON
// body built from the request (or none) and are answered with the success document once the
// device accepted them.
// Stateless: one instance per request or per answer conversion.
#pragma once

#include <json/value.h>

#include <string>

#include "plugin/relay/dev_cfg_base.h"

namespace QXKORVAProtocol {

class CPTZCtrl : public CDevCfgBase {
  public:
    int matchURL(const std::string& url, unsigned char method) override;
    int covertRsp(std::string* xmlOut, const Json::Value& root, const std::string& url,
                  int method) override;
    int covertUrlandBody(std::string* jsonUrl, std::string* jsonBody,
                         const ExchangeHolder& exchange, const std::string& devIndex) override;

    // Command requests: 0 relay, 1 body refused (*jsonUrl emptied), -1 wrong method.
    int covertPTZContinuousUrlandBody(std::string* jsonUrl, std::string* jsonBody,
                                      const ExchangeHolder& exchange, const std::string& devIndex);
    int covertPTZPresetUrlandBody(std::string* jsonUrl, std::string* jsonBody,
                                  const ExchangeHolder& exchange, const std::string& devIndex);

    // The channel list answer: 0 converted into *xmlOut, 9 failed (*xmlOut untouched).
    int covertPTZChannelListRsp(std::string* xmlOut, const Json::Value& root);
};

}  // namespace QXKORVAProtocol
