#include "plugin/handlers/ptz_ctrl.h"

namespace QXKORVAProtocol {

// Declines every request and answer until the resources of this handler are built.
int CPTZCtrl::matchURL(const std::string&, unsigned char) { return -1; }

int CPTZCtrl::covertRsp(std::string*, const Json::Value&, const std::string&, int) { return -1; }

int CPTZCtrl::covertUrlandBody(std::string*, std::string*, const ExchangeHolder&, const std::string&) {
    return -1;
}

}  // namespace QXKORVAProtocol
