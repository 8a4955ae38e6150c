// CEventPto's alarm-bus data routine: one alarm in, one translated document queued for every
// open stream of its device.
#include <json/reader.h>
#include <json/value.h>

#include "plugin/alert/alarm_param.h"
#include "plugin/alert/alarm_translation.h"
#include "plugin/alert/alert_part.h"
#include "plugin/alert/event_pto.h"
#include "plugin/pipeline/json_access.h"
#include "plugin/pipeline/plugin_log.h"

namespace QXKORVAProtocol {
namespace {

// The bus's own keep-alive alarm; streams have their own heartbeat instead.
bool isBusHeartBeat(const Json::Value& root) {
    const Json::Value* alert = findMember(root, "EventNotificationAlert");
    const Json::Value* description = alert ? findMember(*alert, "eventDescription") : nullptr;
    return description && description->isString() && description->asString() == "Heart Beat";
}

// The alarm's device index, false when it names none.
bool alarmDevice(const Json::Value& root, std::string* devIndex) {
    const Json::Value* alert = findMember(root, "EventNotificationAlert");
    const Json::Value* value = alert ? findMember(*alert, "devIndex") : nullptr;
    if (value == nullptr || !value->isString()) return false;
    *devIndex = value->asString();
    return true;
}

}  // namespace

// Runs on the bus's delivery thread. The alarm is parsed and translated once; each stream gets
// the same framed part, built once and shared, and the writer turns it starts go to the worker
// pool as one item. Streams whose head has not gone out yet are skipped.
// Only the stream table's read side is taken, so a slow client never holds up the bus.
int CEventPto::fAlarmDataCallBack(const char* data, int length, void* user) {
    auto* service = static_cast<CEventPto*>(user);
    if (service == nullptr || data == nullptr || length <= 0) {
        QXW_LOG(5, "param error");
        return -1;
    }
    try {
        Json::Value root;
        Json::Reader reader;
        if (!reader.parse(data, data + length, root, false) || !root.isObject()) return -1;
        if (isBusHeartBeat(root)) return length;
        std::string xml;
        std::string devIndex;
        if (!translateAlarm(root, &xml) || !alarmDevice(root, &devIndex)) return -1;
        const std::vector<SessionPtr> streams = service->findStreamsByDevice(devIndex);
        if (streams.empty()) return length;
        const SharedAlertPart part = makeSharedAlertPart(xml);
        // The streams that start a writer turn go to the pool together, in one item.
        std::unique_ptr<CAlarmParam> turns;
        bool queued = true;
        for (const SessionPtr& stream : streams) {
            if (stream->isOpen() && !(queued = service->queuePart(stream, part, &turns))) break;
        }
        service->startTurns(std::move(turns));
        return queued ? length : -1;
    } catch (...) {
        return -1;
    }
}

}  // namespace QXKORVAProtocol
