// The gateway's device manager: attached devices by device index, and attach/detach events.
#pragma once

#include <memory>
#include <string>

// An attached device. The manager shares ownership with whoever looks it up.
class CVexDevice {
  public:
    explicit CVexDevice(std::string devIndex) : m_devIndex(std::move(devIndex)) {}
    const std::string& getDevIndex() const { return m_devIndex; }

  private:
    std::string m_devIndex;
};

// The attached device with that index, or null. Thread-safe.
std::shared_ptr<CVexDevice> QX_DeviceMgr_GetDevice(std::string devIndex);

// Device events: 1 = the device went away (detached), 0 = it came back (attached).
enum : int { kDeviceEventAttached = 0, kDeviceEventDetached = 1 };

// Called on the device manager's notification thread, one event at a time.
typedef void (*QX_DeviceNotifyCallBack)(int event, const char* devIndex, void* user);

// Registers a notification routine. Returns 0, -1 when callback is null.
int QX_DeviceMgr_NotifyAttach(QX_DeviceNotifyCallBack callback, void* user);
// Unregisters every registration of callback. When it returns, the routine is not running
// (unless called from inside it) and is not called again. Returns 0, -1 when not registered.
int QX_DeviceMgr_NotifyDetach(QX_DeviceNotifyCallBack callback);
