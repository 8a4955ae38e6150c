// The alarm bus: subscriptions to the alarms of a set of devices, and the one delivery thread
// that hands every published alarm to the data routines of the started subscriptions.
#include "host/alarm_bus.h"

#include <json/json.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <unordered_set>
#include <vector>

#include "gateway/hostlib/host_alarms.h"
#include "gateway/hostlib/host_context.h"
#include "gateway/hostlib/json_text.h"
#include "gateway/hostlib/mutex.h"
#include "gateway/hostlib/task_queue.h"
#include "host/qx_log.h"

namespace korva::host {
namespace {

constexpr char kModule[] = "ALARMBUS";
// Alarms waiting for delivery; beyond this new alarms are refused (publishAlarm says so).
constexpr size_t kQueueCapacity = 1024;

// Results of the QX_AlarmBus_* functions.
enum : int { kOk = 0, kBadArguments = 1, kUnknownSubscription = 4, kUnknownDevice = 5 };

std::string statusReply(int result) {
    switch (result) {
        case kOk:
            return R"({"statusCode":1,"statusString":"OK","subStatusCode":"ok"})";
        case kBadArguments:
            return R"({"statusCode":6,"statusString":"Content Error","subStatusCode":"badParameters"})";
        case kUnknownSubscription:
            return R"({"statusCode":4,"statusString":"Invalid Operation","subStatusCode":"invalidSubscribeId"})";
        default:
            return R"({"statusCode":4,"statusString":"Invalid Operation","subStatusCode":"invalidDevice"})";
    }
}

int answer(std::string* reply, int result) {
    if (reply != nullptr) *reply = statusReply(result);
    return result;
}

std::optional<Json::Value> parseObject(const std::string& text) {
    JsonLimits limits;
    limits.strictRoot = true;
    limits.rejectDupKeys = true;
    Json::Value root;
    if (!parseJsonText(text, limits, &root) || !root.isObject()) return std::nullopt;
    return root;
}

// An optional member that, when present, must be a string.
bool optionalString(const Json::Value& object, const char* name) {
    return !object.isMember(name) || object[name].isString();
}

// One device entry: {"devIndex":"...","uploadMode":"all"}; the device index, or nullopt.
std::optional<std::string> readDeviceEntry(const Json::Value& entry) {
    if (!entry.isObject() || !entry.isMember("devIndex")) return std::nullopt;
    const Json::Value& devIndex = entry["devIndex"];
    if (!devIndex.isString() || devIndex.asString().empty()) return std::nullopt;
    if (!optionalString(entry, "uploadMode")) return std::nullopt;
    return devIndex.asString();
}

// {"SubscribeDeviceMgmt":{"DevEventList":[{"Dev":{..}}],"eventMode":"device"}}: the devices.
std::optional<std::vector<std::string>> readSubscribeBody(const std::string& body) {
    const std::optional<Json::Value> root = parseObject(body);
    if (!root || !root->isMember("SubscribeDeviceMgmt")) return std::nullopt;
    const Json::Value& mgmt = (*root)["SubscribeDeviceMgmt"];
    if (!mgmt.isObject() || !optionalString(mgmt, "eventMode")) return std::nullopt;
    if (!mgmt.isMember("DevEventList") || !mgmt["DevEventList"].isArray()) return std::nullopt;
    std::vector<std::string> devices;
    for (const Json::Value& item : mgmt["DevEventList"]) {
        if (!item.isObject() || !item.isMember("Dev")) return std::nullopt;
        std::optional<std::string> devIndex = readDeviceEntry(item["Dev"]);
        if (!devIndex) return std::nullopt;
        if (std::find(devices.begin(), devices.end(), *devIndex) == devices.end()) {
            devices.push_back(std::move(*devIndex));
        }
    }
    return devices;
}

// {"SubscribeDevEvent":{"devIndex":..,"uploadMode":"all"}}: the device index.
std::optional<std::string> readAddDeviceBody(const std::string& body) {
    const std::optional<Json::Value> root = parseObject(body);
    if (!root || !root->isMember("SubscribeDevEvent")) return std::nullopt;
    return readDeviceEntry((*root)["SubscribeDevEvent"]);
}

struct Subscription {
    QX_AlarmDataCallBack callback = nullptr;
    void* user = nullptr;
    bool started = false;
    std::vector<std::string> devices;  // in order of addition, no duplicates
    // The same devices as a set: delivery asks once per alarm, in constant time.
    std::unordered_set<std::string> deviceSet;

    bool includes(const std::string& devIndex) const { return deviceSet.count(devIndex) != 0; }
    void add(const std::string& devIndex) {
        if (deviceSet.insert(devIndex).second) devices.push_back(devIndex);
    }
    bool erase(const std::string& devIndex) {
        if (deviceSet.erase(devIndex) == 0) return false;
        std::erase(devices, devIndex);
        return true;
    }
};

}  // namespace

namespace detail {

// Subscriptions and the delivery thread.
class AlarmBus {
  public:
    static AlarmBus& instance() { return context().alarms(); }

    int subscribe(int* subscribeId, std::string* reply, const std::string& body,
                  QX_AlarmDataCallBack callback, void* user) {
        if (subscribeId == nullptr || callback == nullptr) return answer(reply, kBadArguments);
        std::optional<std::vector<std::string>> devices = readSubscribeBody(body);
        if (!devices) return answer(reply, kBadArguments);
        MutexLock lock(m_mutex);
        const int id = m_nextId++;
        Subscription& subscription = m_subscriptions[id];
        subscription.callback = callback;  // a new entry: ids are never reused
        subscription.user = user;
        for (const std::string& devIndex : *devices) subscription.add(devIndex);
        *subscribeId = id;
        if (reply != nullptr) {
            *reply = R"({"statusCode":1,"statusString":"OK","subStatusCode":"ok","subscribeId":)" +
                     std::to_string(id) + "}";
        }
        return kOk;
    }

    int start(int id) {
        MutexLock lock(m_mutex);
        Subscription* subscription = findLocked(id);
        if (subscription == nullptr) return kUnknownSubscription;
        subscription->started = true;
        return kOk;
    }

    int addDevice(std::string* reply, int id, const std::string& devIndex,
                  const std::string& body) {
        const std::optional<std::string> named = readAddDeviceBody(body);
        if (devIndex.empty() || !named || *named != devIndex) return answer(reply, kBadArguments);
        MutexLock lock(m_mutex);
        Subscription* subscription = findLocked(id);
        if (subscription == nullptr) return answer(reply, kUnknownSubscription);
        subscription->add(devIndex);
        return answer(reply, kOk);
    }

    int deleteDevice(std::string* reply, int id, const std::string& devIndex) {
        MutexLock lock(m_mutex);
        Subscription* subscription = findLocked(id);
        if (subscription == nullptr) return answer(reply, kUnknownSubscription);
        if (!subscription->erase(devIndex)) return answer(reply, kUnknownDevice);
        return answer(reply, kOk);
    }

    int unsubscribe(std::string* reply, int id) {
        const bool fromDelivery = m_delivery.onQueueThread();
        MutexLock lock(m_mutex);
        if (m_subscriptions.erase(id) == 0) return answer(reply, kUnknownSubscription);
        if (!fromDelivery) {
            while (m_running == id) m_routineDone.wait(lock);
        }
        return answer(reply, kOk);
    }

    bool known(int id) {
        MutexLock lock(m_mutex);
        return m_subscriptions.count(id) != 0;
    }

    void reset() {
        const bool fromDelivery = m_delivery.onQueueThread();
        MutexLock lock(m_mutex);
        m_subscriptions.clear();
        if (!fromDelivery) {
            while (m_running != 0) m_routineDone.wait(lock);
        }
    }

    bool publish(const std::string& devIndex, const std::string& bytes) {
        int lastId;
        {
            MutexLock lock(m_mutex);
            lastId = m_nextId - 1;
        }
        if (!m_delivery.post(
                [this, devIndex, bytes, lastId] { deliver(devIndex, bytes, lastId); })) {
            QX_Log_Print(4, kModule, "alarm of device %s refused: %zu alarms waiting",
                         devIndex.c_str(), kQueueCapacity);
            return false;
        }
        return true;
    }

    std::vector<SubscriptionState> list() {
        MutexLock lock(m_mutex);
        std::vector<SubscriptionState> states;
        for (const auto& [id, subscription] : m_subscriptions) {
            states.push_back({id, subscription.started, subscription.devices});
        }
        return states;
    }

    void flush() { m_delivery.flush(); }
    std::uint64_t delivered() const { return m_delivered.load(std::memory_order_relaxed); }
    void stop() { m_delivery.stop(); }

  private:
    Subscription* findLocked(int id) REQUIRES(m_mutex) {
        auto it = m_subscriptions.find(id);
        return it == m_subscriptions.end() ? nullptr : &it->second;
    }

    // Calls the routine of every started subscription that wants the alarm, in id order. The
    // list is re-read after every call, so a subscription ended meanwhile is not called;
    // subscriptions made after the alarm was published (id above lastId) do not get it.
    void deliver(const std::string& devIndex, const std::string& bytes, int lastId) {
        int last = 0;
        MutexLock lock(m_mutex);
        for (;;) {
            auto next = std::find_if(
                m_subscriptions.upper_bound(last), m_subscriptions.end(), [&](const auto& entry) {
                    return entry.second.started &&
                           (devIndex.empty() || entry.second.includes(devIndex));
                });
            if (next == m_subscriptions.end() || next->first > lastId) return;
            last = next->first;
            const QX_AlarmDataCallBack callback = next->second.callback;
            void* const user = next->second.user;
            m_running = last;
            lock.unlock();
            const int taken = callback(bytes.data(), static_cast<int>(bytes.size()), user);
            if (taken == static_cast<int>(bytes.size())) {
                m_delivered.fetch_add(1, std::memory_order_relaxed);
            }
            lock.lock();
            m_running = 0;
            m_routineDone.notify_all();
        }
    }

    Mutex m_mutex;
    std::condition_variable_any m_routineDone;
    std::map<int, Subscription> m_subscriptions GUARDED_BY(m_mutex);
    int m_nextId GUARDED_BY(m_mutex) = 1;   // ids are never reused, not even after a reset
    int m_running GUARDED_BY(m_mutex) = 0;  // subscription whose routine is being called, or 0
    TaskQueue m_delivery{"alarm-delivery", 1, kQueueCapacity};
    std::atomic<std::uint64_t> m_delivered{0};  // deliveries a routine took whole
};

template struct PartDeleter<AlarmBus>;
template Owned<AlarmBus> makePart<AlarmBus>();
void stopThreads(AlarmBus& bus) {
    bus.stop();
}

}  // namespace detail

using detail::AlarmBus;

bool publishAlarm(const std::string& devIndex, const std::string& bytes) {
    return AlarmBus::instance().publish(devIndex, bytes);
}
void resetAlarmBus() {
    AlarmBus::instance().reset();
}
std::uint64_t alarmsDelivered() {
    return AlarmBus::instance().delivered();
}
std::vector<SubscriptionState> listSubscriptions() {
    return AlarmBus::instance().list();
}
void flushAlarms() {
    AlarmBus::instance().flush();
}

}  // namespace korva::host

using korva::host::detail::AlarmBus;

int QX_AlarmBus_Subscribe(int* subscribeId, std::string* reply, const std::string& body,
                          QX_AlarmDataCallBack callback, void* user, int /*flag*/) {
    return AlarmBus::instance().subscribe(subscribeId, reply, body, callback, user);
}
int QX_AlarmBus_StartUploadData(int subscribeId) {
    return AlarmBus::instance().start(subscribeId);
}
int QX_AlarmBus_AddDevice(std::string* reply, int subscribeId, const std::string& devIndex,
                          const std::string& body) {
    return AlarmBus::instance().addDevice(reply, subscribeId, devIndex, body);
}
int QX_AlarmBus_DeleteDevice(std::string* reply, int subscribeId, const std::string& devIndex) {
    return AlarmBus::instance().deleteDevice(reply, subscribeId, devIndex);
}
int QX_AlarmBus_UnSubscribe(std::string* reply, int subscribeId, int /*flag*/) {
    return AlarmBus::instance().unsubscribe(reply, subscribeId);
}
int QX_AlarmBus_CheckIDValid(int subscribeId) {
    return AlarmBus::instance().known(subscribeId) ? 1 : 0;
}
