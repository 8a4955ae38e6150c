// The one owner of the host library's shared state. Every C entry point of host/ and every
// control of the gateway side reaches its part through HostContext::get().
//
// Ownership: the context owns each part (one object each, created together with the context on
// the first use of any host function, and destroyed only with it). Each part is defined in its
// own source file; Owned<T> deletes it there, so this header needs no part's definition.
//
// Lifetime: the context is a function-local static. It is destroyed after main returns (or at
// exit()): its destructor first runs shutdown(), then destroys the parts in the reverse of the
// order below. No host function may be called after that (nothing the gateway or its tests
// start outlives main).
//
// Order (construction top to bottom; shutdown and destruction bottom to top):
//   log         the stderr writer, the test sink and the rate limit; every other part logs, so it
//               goes last (its destructor writes out what is still queued)
//   config      user and network configuration
//   auth        accounts, settings and lock-out tables of the digest check
//   nonceKey    the per-process key of the digest nonces
//   timers      the KVL timers, the runtime clocks and their timer thread
//   exchanges   request handles and their backends
//   notifier    the attach/detach notification thread
//   devices     the attached devices (notifies through notifier)
//   alarms      the alarm bus and its delivery thread
//   deviceBus   the device configuration bus: its workers and deadlines (uses exchanges, devices)
// shutdown() stops the threads in the order deviceBus, alarms, notifier, timers (relays first:
// their deadlines would otherwise keep queueing completions), then flushes the log.
//
// Thread safety: get() and every part are safe to use from any thread; shutdown() must not run
// concurrently with itself.
#pragma once

#include <memory>

namespace QXHttpService {
class ExchangeRegistry;
}

namespace korva::host::detail {

class LogService;
class ConfigStore;
class AuthStore;
class NonceKey;
class TimerService;
class DeviceNotifier;
class DeviceTable;
class AlarmBus;
class DeviceCfgBus;

// Deletes a part. The parts are complete types only in their own source files, so makePart and
// PartDeleter are instantiated there explicitly (one line each, beside the part's definition) and
// declared extern below for everyone else.
template <class T>
struct PartDeleter {
    void operator()(T* part) const noexcept;
};
template <class T>
using Owned = std::unique_ptr<T, PartDeleter<T>>;

template <class T>
void PartDeleter<T>::operator()(T* part) const noexcept {
    delete part;
}

// Creates a part from the parts it depends on.
template <class T, class... Args>
Owned<T> makePart(Args&... args) {
    return Owned<T>(new T(args...));
}

extern template struct PartDeleter<LogService>;
extern template struct PartDeleter<ConfigStore>;
extern template struct PartDeleter<AuthStore>;
extern template struct PartDeleter<NonceKey>;
extern template struct PartDeleter<TimerService>;
extern template struct PartDeleter<QXHttpService::ExchangeRegistry>;
extern template struct PartDeleter<DeviceNotifier>;
extern template struct PartDeleter<DeviceTable>;
extern template struct PartDeleter<AlarmBus>;
extern template struct PartDeleter<DeviceCfgBus>;
extern template Owned<LogService> makePart<LogService>();
extern template Owned<ConfigStore> makePart<ConfigStore>();
extern template Owned<AuthStore> makePart<AuthStore>();
extern template Owned<NonceKey> makePart<NonceKey>();
extern template Owned<TimerService> makePart<TimerService>();
extern template Owned<QXHttpService::ExchangeRegistry> makePart<QXHttpService::ExchangeRegistry>();
extern template Owned<DeviceNotifier> makePart<DeviceNotifier>();
extern template Owned<DeviceTable> makePart<DeviceTable>();
extern template Owned<AlarmBus> makePart<AlarmBus>();
extern template Owned<DeviceCfgBus> makePart<DeviceCfgBus>(QXHttpService::ExchangeRegistry&);

// The parts of shutdown(), defined beside each part: each joins its own threads and drops its
// queued work; the log writes out what is queued.
void stopThreads(DeviceCfgBus& bus);
void stopThreads(AlarmBus& bus);
void stopThreads(DeviceNotifier& notifier);
void stopThreads(TimerService& timers);
void flush(LogService& log);

class HostContext {
  public:
    static HostContext& get();

    HostContext(const HostContext&) = delete;
    HostContext& operator=(const HostContext&) = delete;

    LogService& log() { return *m_log; }
    ConfigStore& config() { return *m_config; }
    AuthStore& auth() { return *m_auth; }
    const NonceKey& nonceKey() { return *m_nonceKey; }
    TimerService& timers() { return *m_timers; }
    QXHttpService::ExchangeRegistry& exchanges() { return *m_exchanges; }
    DeviceNotifier& notifier() { return *m_notifier; }
    DeviceTable& devices() { return *m_devices; }
    AlarmBus& alarms() { return *m_alarms; }
    DeviceCfgBus& deviceBus() { return *m_deviceBus; }

    // Stops the host's threads in the stated order, dropping queued work; the parts stay usable
    // (a later use starts their threads again).
    void shutdown();

  private:
    HostContext();
    ~HostContext();

    // Declaration order is construction order; see the header comment.
    Owned<LogService> m_log;
    Owned<ConfigStore> m_config;
    Owned<AuthStore> m_auth;
    Owned<NonceKey> m_nonceKey;
    Owned<TimerService> m_timers;
    Owned<QXHttpService::ExchangeRegistry> m_exchanges;
    Owned<DeviceNotifier> m_notifier;
    Owned<DeviceTable> m_devices;
    Owned<AlarmBus> m_alarms;
    Owned<DeviceCfgBus> m_deviceBus;
};

inline HostContext& context() {
    return HostContext::get();
}

}  // namespace korva::host::detail
