// CImageCfg: image channel capabilities. The request relays a read of the channel's first
// streaming channel (so that an unknown channel becomes the device's error answer) and is
// answered with an empty ImageChannel document.
// Stateless: one instance per request or per answer conversion.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

#include "plugin/relay/dev_cfg_base.h"

namespace QXKORVAProtocol {

class CImageCfg : public CDevCfgBase {
  public:
    int matchURL(const std::string& url, unsigned char method) override;
    int covertRsp(std::string* xmlOut, const Json::Value& root, const std::string& url,
                  int method) override;
    int covertUrlandBody(std::string* jsonUrl, std::string* jsonBody,
                         const ExchangeHolder& exchange, const std::string& devIndex) override;

    // The answer: an empty ImageChannel document, whatever the device said.
    void covertImageChannelRsp(std::string* xmlOut);

    // Streaming channel relayed for an image channel: numbers above 100 already name a
    // streaming channel; any other number n is video input n, whose first stream is n*100+1.
    static int64_t streamingChannelOf(int32_t channel);
};

}  // namespace QXKORVAProtocol
