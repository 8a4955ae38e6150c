// The device configuration bus: relays a plug-in's JSON request to a device endpoint on a bus
// worker and calls the plug-in's completion routine exactly once, on a bus worker, with the
// device's reply or, when none came in time, with the device-busy status object. Outstanding
// relays are bounded per device, per client and in total (RelayLimits in host_devices.h); a
// relay whose request ends before the answer is released at once.
#include "host/device_cfg_bus.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>
#include <thread>
#include <unordered_map>
#include <vector>

#include "gateway/hostlib/bus_internal.h"
#include "gateway/hostlib/deadline_timer.h"
#include "gateway/hostlib/exchange_backend.h"
#include "gateway/hostlib/host_context.h"
#include "gateway/hostlib/query_string.h"
#include "gateway/hostlib/task_queue.h"
#include "host/qx_log.h"

namespace korva::host::detail {
namespace {

constexpr char kModule[] = "DEVBUS";
constexpr char kDeviceBusy[] =
    R"({"errorCode":536870916,"errorMsg":"deviceBusy","statusCode":2,"statusString":"Device Busy"})";

// Results of QX_DeviceCfgBus_ProcessAsyn (the plug-in maps them to its error rows).
enum : int { kAccepted = 0, kBadArguments = 1, kNoSuchDevice = 9, kBusFull = 10 };

// One accepted relay. Shared by the worker running the device, the reply routine handed to the
// device, the deadline and the bus's index by handle; whichever finishes it first wins, the
// others find it finished.
struct Relay {
    QX_DeviceCfgCallBack callback = nullptr;
    void* userData = nullptr;
    std::string devIndex;
    uint64_t epoch = 0;
    int retainedHandle = -1;  // the request's handle, retained in the registry until completion
    std::string client;       // "" when the request has no client address
    // Written before the relay is shared, read-only afterwards.
    bool holdsSlots = false;
    uint64_t generation = 0;
    DeadlineTimer::Clock::time_point due;  // set by start, read by the worker it posts to
    std::atomic<bool> finished{false};
    std::atomic<uint64_t> deadlineId{0};
};

// A device answering from within its handle call, on the worker that runs it: the reply waits
// here and the completion runs on that worker once handle has returned, instead of a second post.
struct InlineReply {
    const Relay* relay = nullptr;
    std::optional<std::string> bytes;
};
thread_local InlineReply* t_inlineReply = nullptr;

// One bus worker per core (2 to 8): devices never wait inside handle, so more workers than cores
// only add wake-ups and context switches per relay.
size_t workerThreads() {
    return std::clamp<size_t>(std::thread::hardware_concurrency(), 2, 8);
}

// Why a relay is answered busy at once instead of reaching its device.
enum class Admission { kSlots, kBusyDevice, kBusyClient, kClientGone, kFull };

// The request handle of a relay: userData is the caller's DeviceCfgContext, if any.
int requestHandle(const void* userData) {
    return userData == nullptr ? -1 : static_cast<const DeviceCfgContext*>(userData)->httpHandle;
}

void onExchangeRemoved(int handle);

}  // namespace

class DeviceCfgBus {
  public:
    static DeviceCfgBus& instance() { return context().deviceBus(); }

    explicit DeviceCfgBus(QXHttpService::ExchangeRegistry& registry) : m_exchanges(registry) {
        m_exchanges.setRemovalListener(&onExchangeRemoved);
    }
    ~DeviceCfgBus() { m_exchanges.setRemovalListener(nullptr); }

    int relay(int method, const std::string& url, const std::string& body,
              QX_DeviceCfgCallBack callback, void* userData, int timeoutMs) {
        if (callback == nullptr || timeoutMs < 0 || method < 0 || method > 3) return kBadArguments;
        const auto devIndex = korva::queryParameter(url, "devIndex");
        if (!devIndex || devIndex->empty()) return kBadArguments;
        std::optional<AttachedDevice> device = findAttachedDevice(std::string(*devIndex));
        if (!device) return kNoSuchDevice;

        auto relay = std::make_shared<Relay>();
        relay->callback = callback;
        relay->userData = userData;
        relay->devIndex = *devIndex;
        relay->epoch = device->epoch;
        const Admission admission = admit(relay, bindToRequest(*relay, requestHandle(userData)));
        if (admission == Admission::kFull) return refuse(*relay);
        if (admission != Admission::kSlots) {
            answerBusyAtOnce(relay, admission);
            return kAccepted;
        }
        // The request may have ended between bindToRequest and admit, before the bus knew the
        // relay: release it now.
        if (relay->retainedHandle >= 0 && !m_exchanges.find(relay->retainedHandle)) {
            clientLeft(relay->retainedHandle);
            return kAccepted;
        }
        DeviceRequest request{method, url.substr(0, url.find('?')), url, std::string(*devIndex),
                              body};
        start(relay, std::move(device->endpoint), std::move(request), timeoutMs);
        return kAccepted;
    }

    // The request of that handle ended (its answer went out, or its client left): relays still
    // waiting for it are answered busy at once (nobody receives it) and free their slots.
    void clientLeft(int handle) {
        std::vector<std::shared_ptr<Relay>> waiting;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            auto [first, last] = m_byHandle.equal_range(handle);
            for (auto it = first; it != last; ++it) waiting.push_back(it->second);
        }
        for (const auto& relay : waiting) {
            if (!finish(relay, kDeviceBusy)) continue;
            m_clientLeft.fetch_add(1);
            QX_Log_Print(2, kModule, "relay to %s released: its client left",
                         relay->devIndex.c_str());
        }
    }

    void setLimits(const RelayLimits& limits) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_limits = limits;
    }

    RelayStats stats() const {
        RelayStats stats;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            stats.outstanding = m_slotHolders;
        }
        stats.busyDevice = m_busyDevice.load();
        stats.busyClient = m_busyClient.load();
        stats.refusedFull = m_refusedFull.load();
        stats.clientLeft = m_clientLeft.load();
        stats.timedOut = m_timedOut.load();
        return stats;
    }

    // Drops every queued relay and forgets the counts (their completions will never run).
    void stop() {
        m_deadlines.stop();
        m_workers.stop();
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_generation;
        m_total = 0;
        m_slotHolders = 0;
        m_perDevice.clear();
        m_perClient.clear();
        m_byHandle.clear();
    }

  private:
    // Ties the relay to its request: retains the handle (so that it is not reused while the
    // callback may rebuild the exchange from it) and takes the client's address. False when the
    // request has ended already; true as well for a relay without request (handle -1).
    bool bindToRequest(Relay& relay, int handle) {
        if (handle < 0) return true;
        if (!m_exchanges.retain(handle)) return false;
        relay.retainedHandle = handle;
        const auto backend = m_exchanges.find(handle);
        if (backend) relay.client = backend->peer();
        return backend != nullptr;
    }

    int refuse(const Relay& relay) {
        if (relay.retainedHandle >= 0) m_exchanges.release(relay.retainedHandle);
        m_refusedFull.fetch_add(1);
        QX_Log_Print(5, kModule, "relay to %s refused: %d relays outstanding",
                     relay.devIndex.c_str(), limits().maxTotal);
        return kBusFull;
    }

    // A relay that may not reach its device: the device-busy status goes to the callback now.
    void answerBusyAtOnce(const std::shared_ptr<Relay>& relay, Admission admission) {
        const RelayLimits bounds = limits();
        if (admission == Admission::kBusyDevice) {
            m_busyDevice.fetch_add(1);
            QX_Log_Print(5, kModule, "relay to %s answered busy: %d relays wait for the device",
                         relay->devIndex.c_str(), bounds.maxPerDevice);
        } else if (admission == Admission::kBusyClient) {
            m_busyClient.fetch_add(1);
            QX_Log_Print(5, kModule, "relay to %s answered busy: %d relays of client %s wait",
                         relay->devIndex.c_str(), bounds.maxPerClient, relay->client.c_str());
        } else {
            m_clientLeft.fetch_add(1);
        }
        finish(relay, kDeviceBusy);
    }

    // Counts the relay in, and decides whether it may reach its device.
    Admission admit(const std::shared_ptr<Relay>& relay, bool clientPresent) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_total >= m_limits.maxTotal) return Admission::kFull;
        ++m_total;
        relay->generation = m_generation;
        if (!clientPresent) return Admission::kClientGone;
        if (countOf(m_perDevice, relay->devIndex) >= m_limits.maxPerDevice) {
            return Admission::kBusyDevice;
        }
        if (!relay->client.empty() &&
            countOf(m_perClient, relay->client) >= m_limits.maxPerClient) {
            return Admission::kBusyClient;
        }
        ++m_perDevice[relay->devIndex];
        if (!relay->client.empty()) ++m_perClient[relay->client];
        if (relay->retainedHandle >= 0) m_byHandle.emplace(relay->retainedHandle, relay);
        relay->holdsSlots = true;
        ++m_slotHolders;
        return Admission::kSlots;
    }

    RelayLimits limits() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_limits;
    }

    static int countOf(const std::unordered_map<std::string, int>& counts, const std::string& key) {
        auto it = counts.find(key);
        return it == counts.end() ? 0 : it->second;
    }

    // Counts drop out of the maps at zero, so the maps hold only devices and clients with relays.
    static void decrement(std::unordered_map<std::string, int>& counts, const std::string& key) {
        auto it = counts.find(key);
        if (it != counts.end() && --it->second <= 0) counts.erase(it);
    }

    void start(const std::shared_ptr<Relay>& relay, std::shared_ptr<DeviceEndpoint> endpoint,
               DeviceRequest request, int timeoutMs) {
        relay->due = DeadlineTimer::Clock::now() + std::chrono::milliseconds(timeoutMs);
        m_workers.post([this, relay, endpoint = std::move(endpoint), request = std::move(request)] {
            runDevice(relay, endpoint.get(), request);
        });
    }

    // Asks the device, unless the relay ended or its time ran out while it waited for a worker.
    // A reply given within handle completes here; otherwise the deadline is armed only now, so
    // that a device answering at once costs no timer entry.
    void runDevice(const std::shared_ptr<Relay>& relay, DeviceEndpoint* endpoint,
                   const DeviceRequest& request) {
        if (relay->finished) return;
        if (endpoint != nullptr && DeadlineTimer::Clock::now() < relay->due) {
            InlineReply pending{relay.get(), std::nullopt};
            t_inlineReply = &pending;
            askDevice(endpoint, request, relay);
            t_inlineReply = nullptr;
            if (pending.bytes) {
                complete(*relay, *pending.bytes);
                return;
            }
        }
        armDeadline(relay);
    }

    void askDevice(DeviceEndpoint* endpoint, const DeviceRequest& request,
                   const std::shared_ptr<Relay>& relay) {
        DeviceReply reply = [this, relay](std::string bytes) { onReply(relay, std::move(bytes)); };
        try {
            endpoint->handle(request, std::move(reply));
        } catch (const std::exception& e) {
            QX_Log_Print(5, kModule, "device %s failed on %s: %s", request.devIndex.c_str(),
                         request.path.c_str(), e.what());
        } catch (...) {
            QX_Log_Print(5, kModule, "device %s failed on %s", request.devIndex.c_str(),
                         request.path.c_str());
        }
    }

    // The relay is answered busy at its due time (at once when that has passed) unless a reply
    // or its client's leaving finishes it first.
    void armDeadline(const std::shared_ptr<Relay>& relay) {
        relay->deadlineId = m_deadlines.schedule(relay->due, [this, relay] { timeOut(relay); });
        // Finished meanwhile: the deadline would only hold the relay longer.
        if (relay->finished) m_deadlines.cancel(relay->deadlineId);
    }

    void onReply(const std::shared_ptr<Relay>& relay, std::string bytes) {
        if (!isStillAttached(relay->devIndex, relay->epoch)) {
            QX_Log_Print(2, kModule, "reply of detached device %s dropped",
                         relay->devIndex.c_str());
            return;
        }
        if (!finish(relay, std::move(bytes))) {
            QX_Log_Print(2, kModule, "late reply of device %s dropped", relay->devIndex.c_str());
        }
    }

    void timeOut(const std::shared_ptr<Relay>& relay) {
        if (!finish(relay, kDeviceBusy)) return;
        m_timedOut.fetch_add(1);
        QX_Log_Print(3, kModule, "device %s did not answer in time", relay->devIndex.c_str());
    }

    // Ends the relay once: frees its device and client slots at once, and calls the plug-in's
    // routine on a worker without a lock: a reply given within the device's handle call is
    // completed by runDevice once handle has returned (the device holds nothing then); any
    // other reply is posted. False when the relay was finished already.
    bool finish(const std::shared_ptr<Relay>& relay, std::string bytes) {
        if (relay->finished.exchange(true)) return false;
        if (relay->holdsSlots) {
            freeSlots(*relay);
            if (const uint64_t id = relay->deadlineId) m_deadlines.cancel(id);
        }
        if (t_inlineReply != nullptr && t_inlineReply->relay == relay.get()) {
            t_inlineReply->bytes = std::move(bytes);
            return true;
        }
        m_workers.post([this, relay, bytes = std::move(bytes)] { complete(*relay, bytes); });
        return true;
    }

    void complete(const Relay& relay, const std::string& bytes) {
        relay.callback(bytes.data(), static_cast<int>(bytes.size()), relay.userData);
        completed(relay);
    }

    void freeSlots(const Relay& relay) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (relay.generation != m_generation) return;
        decrement(m_perDevice, relay.devIndex);
        if (!relay.client.empty()) decrement(m_perClient, relay.client);
        auto [first, last] = m_byHandle.equal_range(relay.retainedHandle);
        for (auto it = first; it != last; ++it) {
            if (it->second.get() == &relay) {
                m_byHandle.erase(it);
                break;
            }
        }
        --m_slotHolders;
    }

    // The plug-in's routine has returned: the relay no longer refers to its request.
    void completed(const Relay& relay) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (relay.generation == m_generation) --m_total;
        }
        if (relay.retainedHandle >= 0) m_exchanges.release(relay.retainedHandle);
    }

    QXHttpService::ExchangeRegistry& m_exchanges;
    // Each accepted relay has at most one device task and one completion queued, so the queue
    // holds at most 2 * maxTotal tasks.
    TaskQueue m_workers{"device-bus", workerThreads(), 0};
    DeadlineTimer m_deadlines;

    mutable std::mutex m_mutex;  // guards what follows; never held while calling out
    RelayLimits m_limits;
    uint64_t m_generation = 0;  // bumped by stop: older relays are no longer counted
    int m_total = 0;            // accepted relays whose completion has not returned
    uint64_t m_slotHolders = 0;
    std::unordered_map<std::string, int> m_perDevice;
    std::unordered_map<std::string, int> m_perClient;
    std::unordered_multimap<int, std::shared_ptr<Relay>> m_byHandle;

    std::atomic<uint64_t> m_busyDevice{0};
    std::atomic<uint64_t> m_busyClient{0};
    std::atomic<uint64_t> m_refusedFull{0};
    std::atomic<uint64_t> m_clientLeft{0};
    std::atomic<uint64_t> m_timedOut{0};
};

namespace {

void onExchangeRemoved(int handle) {
    DeviceCfgBus::instance().clientLeft(handle);
}

}  // namespace

template struct PartDeleter<DeviceCfgBus>;
template Owned<DeviceCfgBus> makePart<DeviceCfgBus>(QXHttpService::ExchangeRegistry&);
void stopThreads(DeviceCfgBus& bus) {
    bus.stop();
}

}  // namespace korva::host::detail

namespace korva::host {

void setRelayLimits(const RelayLimits& limits) {
    detail::DeviceCfgBus::instance().setLimits(limits);
}

RelayStats relayStats() {
    return detail::DeviceCfgBus::instance().stats();
}

}  // namespace korva::host

// The host interface takes the URL by value.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
int QX_DeviceCfgBus_ProcessAsyn(int method, std::string jsonUrl, const std::string& jsonBody,
                                QX_DeviceCfgCallBack callback, void* userData, int timeoutMs) {
    return korva::host::detail::DeviceCfgBus::instance().relay(method, jsonUrl, jsonBody, callback,
                                                               userData, timeoutMs);
}
