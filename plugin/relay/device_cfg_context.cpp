#include "plugin/relay/device_cfg_context.h"

#include <new>

namespace QXKORVAProtocol {

DeviceCfgContext* allocateDeviceCfgContext() {
    return new (std::nothrow) DeviceCfgContext();
}

void releaseDeviceCfgContext(DeviceCfgContext* context) {
    if (context == nullptr) return;
    delete[] context->attachment;
    delete context;
}

}  // namespace QXKORVAProtocol
