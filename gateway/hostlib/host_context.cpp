#include "gateway/hostlib/host_context.h"

#include "gateway/hostlib/host_lifetime.h"

namespace korva::host::detail {

HostContext& HostContext::get() {
    static HostContext context;
    return context;
}

HostContext::HostContext()
    : m_log(makeLogService()),
      m_config(makeConfigStore()),
      m_auth(makeAuthStore()),
      m_nonceKey(makeNonceKey()),
      m_timers(makeTimerService()),
      m_exchanges(makeExchangeRegistry()),
      m_notifier(makeDeviceNotifier()),
      m_devices(makeDeviceTable()),
      m_alarms(makeAlarmBus()),
      m_deviceBus(makeDeviceCfgBus(*m_exchanges)) {}

HostContext::~HostContext() {
    shutdown();
    // The members go in the reverse of their declaration order.
}

void HostContext::shutdown() {
    stopThreads(*m_deviceBus);
    stopThreads(*m_alarms);
    stopThreads(*m_notifier);
    stopThreads(*m_timers);
    flush(*m_log);
}

}  // namespace korva::host::detail

namespace korva::host {

void shutdown() {
    detail::context().shutdown();
}

}  // namespace korva::host
