// CDevMaintain: device information, video inputs, storage and admin access resources.
// Stateless: one instance per request or per answer conversion.
#pragma once

#include <json/value.h>

#include <string>

#include "plugin/relay/dev_cfg_base.h"

namespace QXKORVAProtocol {

class CDevMaintain : public CDevCfgBase {
public:
    int matchURL(const std::string& url, unsigned char method) override;
    int covertRsp(std::string* xmlOut, const Json::Value& root, const std::string& url,
                  int method) override;
    int covertUrlandBody(std::string* jsonUrl, std::string* jsonBody,
                         const ExchangeHolder& exchange, const std::string& devIndex) override;
};

}  // namespace QXKORVAProtocol
