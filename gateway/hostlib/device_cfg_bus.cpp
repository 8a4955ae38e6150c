// The device configuration bus: relays a plug-in's JSON request to a device endpoint on a bus
// worker and calls the plug-in's completion routine exactly once, on a bus worker, with the
// device's reply or, when none came in time, with the device-busy status object.
#include "host/device_cfg_bus.h"

#include <atomic>
#include <chrono>
#include <optional>

#include "gateway/hostlib/bus_internal.h"
#include "gateway/hostlib/deadline_timer.h"
#include "gateway/hostlib/task_queue.h"
#include "host/qx_log.h"

namespace korva::host::detail {
namespace {

constexpr char kModule[] = "DEVBUS";
constexpr char kDeviceBusy[] =
    R"({"errorCode":536870916,"errorMsg":"deviceBusy","statusCode":2,"statusString":"Device Busy"})";
constexpr size_t kWorkerThreads = 4;
// Relays accepted but not yet completed; beyond this the bus refuses new ones.
constexpr int kMaxOutstanding = 4096;

// Results of QX_DeviceCfgBus_ProcessAsyn (the plug-in maps them to its error rows).
enum : int { kAccepted = 0, kBadArguments = 1, kNoSuchDevice = 9, kBusFull = 10 };

// The value of one query parameter of a URL ("name=value" between "?"/"&" separators), or
// nullopt when the parameter is absent.
std::optional<std::string> queryParameter(const std::string& url, const std::string& name) {
    const size_t question = url.find('?');
    if (question == std::string::npos) return std::nullopt;
    size_t start = question + 1;
    while (start <= url.size()) {
        size_t end = url.find('&', start);
        if (end == std::string::npos) end = url.size();
        const std::string_view field(url.data() + start, end - start);
        const size_t equals = field.find('=');
        if (field.substr(0, equals) == name) {
            return equals == std::string_view::npos ? std::string()
                                                    : std::string(field.substr(equals + 1));
        }
        start = end + 1;
    }
    return std::nullopt;
}

// One accepted relay. Shared by the worker running the device, the reply routine handed to the
// device, and the deadline; whichever finishes it first wins, the others find it finished.
struct Relay {
    Relay(QX_DeviceCfgCallBack cb, void* data, std::string index, uint64_t deviceEpoch,
          std::atomic<int>& outstandingCount)
        : callback(cb),
          userData(data),
          devIndex(std::move(index)),
          epoch(deviceEpoch),
          outstanding(outstandingCount) {}
    ~Relay() { release(); }
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;

    // Takes the relay off the outstanding count, once.
    void release() {
        if (counted.exchange(false)) outstanding.fetch_sub(1);
    }

    const QX_DeviceCfgCallBack callback;
    void* const userData;
    const std::string devIndex;
    const uint64_t epoch;
    std::atomic<int>& outstanding;
    std::atomic<bool> finished{false};
    std::atomic<uint64_t> deadlineId{0};
    std::atomic<bool> counted{true};
};

class DeviceCfgBus {
  public:
    static DeviceCfgBus& instance() {
        static auto* bus = new DeviceCfgBus;  // never destroyed: its threads may outlive main
        return *bus;
    }

    int relay(int method, const std::string& url, const std::string& body,
              QX_DeviceCfgCallBack callback, void* userData, int timeoutMs) {
        if (callback == nullptr || timeoutMs < 0 || method < 0 || method > 3) return kBadArguments;
        std::optional<std::string> devIndex = queryParameter(url, "devIndex");
        if (!devIndex || devIndex->empty()) return kBadArguments;
        std::optional<AttachedDevice> device = findAttachedDevice(*devIndex);
        if (!device) return kNoSuchDevice;
        if (m_outstanding.fetch_add(1) >= kMaxOutstanding) {
            m_outstanding.fetch_sub(1);
            QX_Log_Print(5, kModule, "relay to %s refused: %d relays outstanding",
                         devIndex->c_str(), kMaxOutstanding);
            return kBusFull;
        }
        auto relay =
            std::make_shared<Relay>(callback, userData, *devIndex, device->epoch, m_outstanding);
        DeviceRequest request{method, url.substr(0, url.find('?')), url, *devIndex, body};
        start(relay, std::move(device->endpoint), std::move(request), timeoutMs);
        return kAccepted;
    }

    void stop() {
        m_deadlines.stop();
        m_workers.stop();
    }

  private:
    void start(const std::shared_ptr<Relay>& relay, std::shared_ptr<DeviceEndpoint> endpoint,
               DeviceRequest request, int timeoutMs) {
        const auto when = DeadlineTimer::Clock::now() + std::chrono::milliseconds(timeoutMs);
        relay->deadlineId = m_deadlines.schedule(when, [this, relay] { timeOut(relay); });
        m_workers.post([this, relay, endpoint = std::move(endpoint), request = std::move(request)] {
            runDevice(relay, endpoint.get(), request);
        });
    }

    void runDevice(const std::shared_ptr<Relay>& relay, DeviceEndpoint* endpoint,
                   const DeviceRequest& request) {
        // Timed out while waiting for a worker, or a device without endpoint (never answers).
        if (relay->finished || endpoint == nullptr) return;
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

    void onReply(const std::shared_ptr<Relay>& relay, std::string bytes) {
        if (!isStillAttached(relay->devIndex, relay->epoch)) {
            QX_Log_Print(2, kModule, "reply of detached device %s dropped",
                         relay->devIndex.c_str());
            return;
        }
        if (relay->finished.exchange(true)) {
            QX_Log_Print(2, kModule, "late reply of device %s dropped", relay->devIndex.c_str());
            return;
        }
        m_deadlines.cancel(relay->deadlineId);
        complete(relay, std::move(bytes));
    }

    void timeOut(const std::shared_ptr<Relay>& relay) {
        if (relay->finished.exchange(true)) return;
        QX_Log_Print(3, kModule, "device %s did not answer in time", relay->devIndex.c_str());
        complete(relay, kDeviceBusy);
    }

    // Calls the plug-in's routine on a worker (never on the thread that delivered the reply).
    void complete(const std::shared_ptr<Relay>& relay, std::string bytes) {
        m_workers.post([relay, bytes = std::move(bytes)] {
            relay->callback(bytes.data(), static_cast<int>(bytes.size()), relay->userData);
            relay->release();
        });
    }

    TaskQueue m_workers{"device-bus", kWorkerThreads, 0};
    DeadlineTimer m_deadlines;
    std::atomic<int> m_outstanding{0};
};

}  // namespace

void stopDeviceCfgBus() {
    DeviceCfgBus::instance().stop();
}

}  // namespace korva::host::detail

int QX_DeviceCfgBus_ProcessAsyn(int method, std::string jsonUrl, const std::string& jsonBody,
                                QX_DeviceCfgCallBack callback, void* userData, int timeoutMs) {
    return korva::host::detail::DeviceCfgBus::instance().relay(method, jsonUrl, jsonBody, callback,
                                                               userData, timeoutMs);
}
