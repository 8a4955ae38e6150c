// CDevMaintain: device information, video inputs, storage and admin access resources.
// Only device information and video inputs are read from the device; the storage and admin
// access requests relay the device-information read (so that a device error still becomes the
// answer) and are answered from a fixed document and from the gateway's network configuration.
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

    // Answer converters: true when *xmlOut holds the finished document; false on failure, with
    // *xmlOut untouched.
    bool covertDevinfoRsp(std::string* xmlOut, const Json::Value& root);
    bool covertVideoChannelRsp(std::string* xmlOut, const Json::Value& root);
    // From the gateway's network configuration; the device's answer is not read.
    bool covertAdminAccessesRsp(std::string* xmlOut);

    // The storage answer: one fixed document, the same for every device.
    static const std::string& storageDocument();
};

}  // namespace QXKORVAProtocol
