#include "plugin/handlers/image_cfg.h"

namespace QXKORVAProtocol {

// Declines every request and answer until the resources of this handler are built.
int CImageCfg::matchURL(const std::string&, unsigned char) { return -1; }

int CImageCfg::covertRsp(std::string*, const Json::Value&, const std::string&, int) { return -1; }

int CImageCfg::covertUrlandBody(std::string*, std::string*, const ExchangeHolder&, const std::string&) {
    return -1;
}

}  // namespace QXKORVAProtocol
