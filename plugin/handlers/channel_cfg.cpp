#include "plugin/handlers/channel_cfg.h"

namespace QXKORVAProtocol {

// Declines every request and answer until the resources of this handler are built.
int CChannelCfg::matchURL(const std::string&, unsigned char) { return -1; }

int CChannelCfg::covertRsp(std::string*, const Json::Value&, const std::string&, int) { return -1; }

int CChannelCfg::covertUrlandBody(std::string*, std::string*, const ExchangeHolder&, const std::string&) {
    return -1;
}

}  // namespace QXKORVAProtocol
