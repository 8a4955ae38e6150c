#include "gateway/hostlib/device_notifier.h"

#include <algorithm>

#include "gateway/hostlib/host_context.h"

namespace korva::host::detail {

DeviceNotifier& DeviceNotifier::instance() {
    return context().notifier();
}

template struct PartDeleter<DeviceNotifier>;
template Owned<DeviceNotifier> makePart<DeviceNotifier>();
void stopThreads(DeviceNotifier& notifier) {
    notifier.stop();
}

int DeviceNotifier::add(QX_DeviceNotifyCallBack callback, void* user) {
    if (callback == nullptr) return -1;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_registrations.push_back(Registration{m_nextId++, callback, user});
    return 0;
}

int DeviceNotifier::remove(QX_DeviceNotifyCallBack callback) {
    const bool fromRoutine = m_queue.onQueueThread();
    std::unique_lock<std::mutex> lock(m_mutex);
    const auto removed = std::erase_if(
        m_registrations, [&](const Registration& r) { return r.callback == callback; });
    if (removed == 0) return -1;
    // A routine that unregisters itself cannot wait for its own return.
    if (!fromRoutine) m_routineDone.wait(lock, [&] { return m_running != callback; });
    return 0;
}

void DeviceNotifier::notify(int event, std::string devIndex) {
    uint64_t lastRegistration;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        lastRegistration = m_nextId - 1;
    }
    m_queue.post([this, event, devIndex = std::move(devIndex), lastRegistration] {
        dispatch(event, devIndex, lastRegistration);
    });
}

void DeviceNotifier::dispatch(int event, const std::string& devIndex, uint64_t lastRegistration) {
    // Walks the registrations by id, re-reading the list after every call, so a routine
    // removed meanwhile is never called and none is called twice for one event. Routines
    // registered after the event happened do not hear of it.
    uint64_t last = 0;
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        auto next = std::find_if(m_registrations.begin(), m_registrations.end(),
                                 [&](const Registration& r) { return r.id > last; });
        if (next == m_registrations.end() || next->id > lastRegistration) return;
        last = next->id;
        const Registration registration = *next;
        m_running = registration.callback;
        lock.unlock();
        registration.callback(event, devIndex.c_str(), registration.user);
        lock.lock();
        m_running = nullptr;
        m_routineDone.notify_all();
    }
}

}  // namespace korva::host::detail
