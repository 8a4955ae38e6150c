// CEventPto's supervision: heartbeats for quiet streams, the clean-up of failing streams and of
// an unused subscription, and the end of a device's streams when the device goes away.
#include <new>
#include <utility>

#include "host/alarm_bus.h"
#include "host/device_mgr.h"
#include "host/host_util.h"
#include "host/kvl_runtime.h"
#include "host/xml_base.h"
#include "plugin/alert/alarm_param.h"
#include "plugin/alert/alert_part.h"
#include "plugin/alert/event_pto.h"
#include "plugin/pipeline/plugin_log.h"
#include "plugin/pipeline/xml_text.h"

namespace QXKORVAProtocol {
namespace {

constexpr int kHeartBeatBufferSize = 1024;

struct DueStream {
    CEventPto::SessionPtr stream;
    uint32_t lastSendTick;
    uint32_t now;
};

}  // namespace

int CEventPto::buildHeartBeatXml(CAlertStreamSession& stream, std::string* xml) {
    const int32_t count = stream.heartBeatCount.fetch_add(1) + 1;
    const std::pair<const char*, std::string> children[] = {
        {"dataTime", GetCurTime8601(0)},    {"activePostCount", std::to_string(count)},
        {"eventType", "heartBeat"},         {"eventState", "active"},
        {"eventDescription", "Heart Beat"},
    };
    QXBase::CXmlBase doc;
    doc.CreateRoot("EventNotificationAlert");
    for (const auto& [name, text] : children) addTextElement(doc, name, text);
    char buffer[kHeartBeatBufferSize] = {};
    doc.WriteToBuf(buffer, sizeof(buffer));
    *xml = buffer;
    return 1;
}

// Quiet time is the tick now minus the tick of the last complete write, in unsigned 32-bit
// arithmetic, so the wrap of the tick counter does not make a stream look quiet. A heartbeat
// does not itself reset it: only its complete write does.
int CEventPto::sendHeartBeatOnTimer(uint32_t timerId, void* user) {
    auto* service = static_cast<CEventPto*>(user);
    if (service == nullptr || timerId != service->heartBeatTimerId) return 0;
    // The due streams are collected under the table's read side; their heartbeats are built
    // and queued after it, so writers of the table wait only for the walk.
    try {
        std::vector<DueStream> due;
        service->streamMap.forEach([&due](const SessionPtr& stream) {
            const uint32_t now = KVL_GetTimeTick();
            const uint32_t last = stream->lastSendTick;
            // A stream with parts on their way gets no heartbeat behind them.
            if (stream->isOpen() && now - last >= kQuietTimeMs && stream->idle()) {
                due.push_back({stream, last, now});
            }
            return true;
        });
        for (const DueStream& entry : due) {
            QXW_LOG(3, "[lastAlarmTime=%d,nowTime=%d]test", static_cast<int>(entry.lastSendTick),
                    static_cast<int>(entry.now));
            std::string xml;
            buildHeartBeatXml(*entry.stream, &xml);
            if (!service->queuePart(entry.stream, makeSharedAlertPart(xml))) break;
        }
    } catch (...) {
        QXW_LOG(5, "new CAlarmParam failed.");
    }
    return 0;
}

int CEventPto::checkAbnormalOnTimer(uint32_t timerId, void* user) {
    auto* service = static_cast<CEventPto*>(user);
    if (service == nullptr || timerId != service->abnormalTimerId) return 0;
    try {
        service->checkAbnormal();
    } catch (...) {
        QXW_LOG(5, "clean-up failed, retried at the next run");
    }
    return 0;
}

// One clean-up run, under subscriptionMutex: a subscription the bus no longer knows drops every
// stream; otherwise streams past the failure threshold go, their devices leave the subscription
// when they have no stream left, and an empty table ends the subscription.
void CEventPto::checkAbnormal() {
    std::lock_guard<std::mutex> lock(subscriptionMutex);
    const int id = alarmSubscribeId;
    if (id != -1 && QX_AlarmBus_CheckIDValid(id) == 0) {
        alarmSubscribeId = -1;
        streamMap.clear();
        return;
    }
    const std::vector<std::string> devices = streamMap.removeIf(
        [](const CAlertStreamSession& stream) { return stream.sendFailCount > kMaxSendFailCount; });
    std::string reply;
    for (const std::string& devIndex : devices) {
        if (id != -1 && findStreamsByDevice(devIndex).empty()) {
            QX_AlarmBus_DeleteDevice(&reply, id, devIndex);
        }
    }
    if (id != -1 && streamMap.size() == 0 && QX_AlarmBus_UnSubscribe(&reply, id, 1) == 0) {
        alarmSubscribeId = -1;
    }
}

// Runs on the device manager's thread. The device stays in the subscription; the clean-up
// timer ends the subscription once no stream is left at all.
void CEventPto::fDeviceNotifyCallBack(int event, const char* devIndex, void* user) {
    auto* service = static_cast<CEventPto*>(user);
    if (devIndex == nullptr || service == nullptr || event != kDeviceEventDetached) return;
    try {
        for (const SessionPtr& stream : service->findStreamsByDevice(devIndex)) {
            service->removeStream(stream->getStreamId());
        }
    } catch (...) {
        QXW_LOG(5, "[DevIndex=%s]streams of the device not ended", devIndex);
    }
}

}  // namespace QXKORVAProtocol
