// The one table of the device-relay handlers. The request chain (procHandlerChain) and the
// answer chain of the relay (devCfgHandlerOrder, used by CDevCfgBase::covertRspChain) both
// walk it, so a request and its device answer meet the handlers in the same order.
#include "plugin/entry/handler_chain.h"

#include <iterator>
#include <memory>

#include "plugin/handlers/channel_cfg.h"
#include "plugin/handlers/dev_maintain.h"
#include "plugin/handlers/event_cfg.h"
#include "plugin/handlers/image_cfg.h"
#include "plugin/handlers/ptz_ctrl.h"
#include "plugin/handlers/record_operation.h"
#include "plugin/relay/handler_order.h"

namespace QXKORVAProtocol {
namespace {

template <typename Handler>
std::unique_ptr<CDevCfgBase> makeHandler() {
    return std::make_unique<Handler>();
}

constexpr DevCfgHandlerFactory kHandlerOrder[] = {
    &makeHandler<CChannelCfg>, &makeHandler<CDevMaintain>, &makeHandler<CEventCfg>,
    &makeHandler<CImageCfg>,   &makeHandler<CPTZCtrl>,     &makeHandler<CRecordOperation>,
};

}  // namespace

const DevCfgHandlerFactory* devCfgHandlerOrder(size_t* count) {
    if (count != nullptr) *count = std::size(kHandlerOrder);
    return kHandlerOrder;
}

int procHandlerChain(int* handled, std::string* response, int* asyncReply,
                     const ExchangeHolder& exchange) {
    for (DevCfgHandlerFactory factory : kHandlerOrder) {
        const std::unique_ptr<CDevCfgBase> handler = factory();
        const int result = handler->proc(handled, response, asyncReply, exchange);
        if (result != -1) return result;
    }
    return -1;
}

}  // namespace QXKORVAProtocol
