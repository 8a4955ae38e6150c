// The device manager: attached devices by device index. A device stays known after a detach
// (so it can be reattached) but is invisible to lookups and relays until then.
#include <map>

#include "gateway/hostlib/bus_internal.h"
#include "gateway/hostlib/device_notifier.h"
#include "gateway/hostlib/host_context.h"
#include "gateway/hostlib/mutex.h"
#include "host/device_mgr.h"

namespace korva::host::detail {
namespace {

struct DeviceEntry {
    std::shared_ptr<DeviceEndpoint> endpoint;
    std::shared_ptr<CVexDevice> device;
    bool attached = false;
    uint64_t epoch = 0;  // changes on every transition to attached
};

}  // namespace

// Devices by index, and their attach/detach transitions (notified through the notifier).
class DeviceTable {
  public:
    static DeviceTable& instance() { return context().devices(); }

    void attach(const std::string& devIndex, std::shared_ptr<DeviceEndpoint> endpoint) {
        MutexLock lock(m_mutex);
        auto [it, inserted] = m_devices.try_emplace(devIndex);
        DeviceEntry& entry = it->second;
        entry.endpoint = std::move(endpoint);
        if (entry.attached) return;  // replaced in place: same device, same epoch
        const bool cameBack = !inserted;
        markAttachedLocked(devIndex, entry);
        if (cameBack) DeviceNotifier::instance().notify(kDeviceEventAttached, devIndex);
    }

    bool reattach(const std::string& devIndex) {
        MutexLock lock(m_mutex);
        auto it = m_devices.find(devIndex);
        if (it == m_devices.end()) return false;
        if (it->second.attached) return true;  // events report changes only
        markAttachedLocked(devIndex, it->second);
        DeviceNotifier::instance().notify(kDeviceEventAttached, devIndex);
        return true;
    }

    bool detach(const std::string& devIndex) {
        MutexLock lock(m_mutex);
        auto it = m_devices.find(devIndex);
        if (it == m_devices.end() || !it->second.attached) return false;
        it->second.attached = false;
        it->second.device.reset();
        DeviceNotifier::instance().notify(kDeviceEventDetached, devIndex);
        return true;
    }

    void clear() {
        std::map<std::string, DeviceEntry> dropped;  // endpoints released outside the lock
        MutexLock lock(m_mutex);
        dropped.swap(m_devices);
    }

    std::vector<DeviceState> list() {
        MutexLock lock(m_mutex);
        std::vector<DeviceState> states;
        states.reserve(m_devices.size());
        for (const auto& [devIndex, entry] : m_devices)
            states.push_back({devIndex, entry.attached});
        return states;
    }

    std::shared_ptr<CVexDevice> device(const std::string& devIndex) {
        MutexLock lock(m_mutex);
        auto it = m_devices.find(devIndex);
        return it != m_devices.end() && it->second.attached ? it->second.device : nullptr;
    }

    std::optional<AttachedDevice> attached(const std::string& devIndex) {
        MutexLock lock(m_mutex);
        auto it = m_devices.find(devIndex);
        if (it == m_devices.end() || !it->second.attached) return std::nullopt;
        return AttachedDevice{it->second.endpoint, it->second.epoch};
    }

    bool stillAttached(const std::string& devIndex, uint64_t epoch) {
        MutexLock lock(m_mutex);
        auto it = m_devices.find(devIndex);
        return it != m_devices.end() && it->second.attached && it->second.epoch == epoch;
    }

  private:
    void markAttachedLocked(const std::string& devIndex, DeviceEntry& entry) REQUIRES(m_mutex) {
        entry.attached = true;
        entry.epoch = m_nextEpoch++;
        entry.device = std::make_shared<CVexDevice>(devIndex);
    }

    Mutex m_mutex;
    std::map<std::string, DeviceEntry> m_devices GUARDED_BY(m_mutex);
    uint64_t m_nextEpoch GUARDED_BY(m_mutex) =
        1;  // shared by all devices, so a forgotten device's epoch never returns
};

template struct PartDeleter<DeviceTable>;
template Owned<DeviceTable> makePart<DeviceTable>();

}  // namespace korva::host::detail

namespace korva::host {

using detail::DeviceTable;

void attachDevice(const std::string& devIndex, std::shared_ptr<DeviceEndpoint> endpoint) {
    DeviceTable::instance().attach(devIndex, std::move(endpoint));
}
bool reattachDevice(const std::string& devIndex) {
    return DeviceTable::instance().reattach(devIndex);
}
bool detachDevice(const std::string& devIndex) {
    return DeviceTable::instance().detach(devIndex);
}
void clearDevices() {
    DeviceTable::instance().clear();
}
std::vector<DeviceState> listDevices() {
    return DeviceTable::instance().list();
}

namespace detail {

std::optional<AttachedDevice> findAttachedDevice(const std::string& devIndex) {
    return DeviceTable::instance().attached(devIndex);
}
bool isStillAttached(const std::string& devIndex, uint64_t epoch) {
    return DeviceTable::instance().stillAttached(devIndex, epoch);
}

}  // namespace detail
}  // namespace korva::host

// The host interface takes the device index by value.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
std::shared_ptr<CVexDevice> QX_DeviceMgr_GetDevice(std::string devIndex) {
    return korva::host::detail::DeviceTable::instance().device(devIndex);
}

int QX_DeviceMgr_NotifyAttach(QX_DeviceNotifyCallBack callback, void* user) {
    return korva::host::detail::DeviceNotifier::instance().add(callback, user);
}

int QX_DeviceMgr_NotifyDetach(QX_DeviceNotifyCallBack callback) {
    return korva::host::detail::DeviceNotifier::instance().remove(callback);
}
