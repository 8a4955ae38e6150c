// Stopping the host's threads at the end of the gateway's (or a test's) life.
#include "gateway/hostlib/bus_internal.h"
#include "gateway/hostlib/host_control.h"
#include "gateway/hostlib/runtime_internal.h"

namespace korva::host {

void shutdown() {
    // Relays first: their deadlines would otherwise keep queueing completions.
    detail::stopDeviceCfgBus();
    detail::stopAlarmBus();
    detail::stopDeviceNotifications();
    detail::stopRuntimeThreads();
    flushLog();
}

}  // namespace korva::host
