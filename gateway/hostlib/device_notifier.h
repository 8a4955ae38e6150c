// Attach/detach notifications of the device manager: the registered routines and the single
// thread that calls them, one event at a time, in the order the events happened.
//
// Thread safety: every member may be called from any thread, also from a routine being notified
// (a routine that removes itself does not wait for its own return). remove() from elsewhere
// returns only once the removed routine is not running.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "gateway/hostlib/task_queue.h"
#include "host/device_mgr.h"

namespace korva::host::detail {

class DeviceNotifier {
  public:
    DeviceNotifier() = default;
    static DeviceNotifier& instance();  // the host context's

    // QX_DeviceMgr_NotifyAttach / QX_DeviceMgr_NotifyDetach.
    int add(QX_DeviceNotifyCallBack callback, void* user);
    int remove(QX_DeviceNotifyCallBack callback);

    // Queues one event for the routines registered now that are still registered when it is
    // delivered. Callers that need events in the order of their state changes queue them under
    // their own lock.
    void notify(int event, std::string devIndex);

    // Waits until the events queued so far were delivered (tests).
    void flush() { m_queue.flush(); }
    // Stops the notification thread, dropping undelivered events.
    void stop() { m_queue.stop(); }

  private:
    struct Registration {
        uint64_t id;
        QX_DeviceNotifyCallBack callback;
        void* user;
    };

    void dispatch(int event, const std::string& devIndex, uint64_t lastRegistration);

    std::mutex m_mutex;
    std::condition_variable m_routineDone;
    std::vector<Registration> m_registrations;  // ascending id
    uint64_t m_nextId = 1;
    QX_DeviceNotifyCallBack m_running = nullptr;  // routine being called, if any
    TaskQueue m_queue{"device-notify", 1, 0};
};

}  // namespace korva::host::detail
