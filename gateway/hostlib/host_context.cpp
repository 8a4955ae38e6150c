#include "gateway/hostlib/host_context.h"

#include "gateway/hostlib/host_lifetime.h"

namespace korva::host::detail {

HostContext& HostContext::get() {
    static HostContext context;
    return context;
}

HostContext::HostContext()
    : m_log(makePart<LogService>()),
      m_config(makePart<ConfigStore>()),
      m_auth(makePart<AuthStore>()),
      m_nonceKey(makePart<NonceKey>()),
      m_timers(makePart<TimerService>()),
      m_exchanges(makePart<QXHttpService::ExchangeRegistry>()),
      m_notifier(makePart<DeviceNotifier>()),
      m_devices(makePart<DeviceTable>()),
      m_alarms(makePart<AlarmBus>()),
      m_deviceBus(makePart<DeviceCfgBus>(*m_exchanges)) {}

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
