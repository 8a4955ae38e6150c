// Allocation and release of the per-request relay context. The context is created by
// CDevCfgBase::procProtocol, belongs to the host once QX_DeviceCfgBus_ProcessAsyn has accepted
// it, and is released by deviceCfgCallBack (or by procProtocol when the relay is refused).
#pragma once

#include "host/device_cfg_bus.h"

namespace QXKORVAProtocol {

// A zero-filled context, or null when memory is short (never throws).
DeviceCfgContext* allocateDeviceCfgContext();

// Releases the attachment (allocated with new[]) and the context. Null is ignored.
void releaseDeviceCfgContext(DeviceCfgContext* context);

}  // namespace QXKORVAProtocol
