// CEventPto's workers: each queued part is framed and written to its stream's connection, one
// writer per stream at a time; broken links and full queues end the stream.
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "host/alarm_bus.h"
#include "host/http_exchange.h"
#include "host/kvl_runtime.h"
#include "plugin/alert/alarm_param.h"
#include "plugin/alert/alert_part.h"
#include "plugin/alert/event_pto.h"
#include "plugin/pipeline/plugin_log.h"

namespace QXKORVAProtocol {

std::string buildAlertPart(const std::string& xml) {
    char header[256] = {};
    std::snprintf(header, sizeof(header),
                  "--boundary\r\nContent-Type: application/xml; charset=\"UTF-8\"\r\n"
                  "Content-Length: %d\r\n\r\n",
                  static_cast<int>(xml.size()));
    std::string part;
    const std::size_t headerBytes = std::strlen(header);
    part.reserve(headerBytes + xml.size());
    part.append(header, headerBytes);
    part += xml;
    return part;
}

SharedAlertPart makeSharedAlertPart(const std::string& xml) {
    return std::make_shared<const AlertPartText>(AlertPartText{buildAlertPart(xml), xml.size()});
}

namespace {

enum class WriteResult { kComplete, kBroken, kIncomplete };

// Writes the framed part to the stream's connection and updates its link statistics: a
// complete write resets the quiet time and the failure count, an incomplete one counts.
WriteResult sendPart(CAlertStreamSession& stream, const std::string& part) {
    QXHttpService::CHttpExchange exchange(stream.getHttpHandle());
    const int written = exchange.response(part.data(), static_cast<int>(part.size()));
    if (written == static_cast<int>(part.size())) {
        stream.lastSendTick = KVL_GetTimeTick();
        stream.sendFailCount = 0;
        return WriteResult::kComplete;
    }
    if (written == QXHttpService::CHttpExchange::kLinkBroken) return WriteResult::kBroken;
    stream.sendFailCount.fetch_add(1);
    return WriteResult::kIncomplete;
}

}  // namespace

// The pool item is the first part of a stream's writer turn: the worker writes it, then every
// part queued for the stream meanwhile, in order, and ends its turn when the queue is empty. The
// writer holds no lock while a part goes out, so a slow client delays only its own stream, and
// parts never interleave. A broken link ends the stream at once: its queued parts are discarded
// unwritten, and the failure is logged once.
int CEventPto::fAlarmProcessThread(void* item) {
    std::unique_ptr<CAlarmParam> param(static_cast<CAlarmParam*>(item));  // back from the pool
    if (param == nullptr) {
        QXW_LOG(5, "pCAlarmParam is NULL");
        return 0;
    }
    const SessionPtr stream = param->getAlertStreamSession();
    if (!stream) {
        QXW_LOG(5, "getAlertStreamSession failed");
        return 0;
    }
    for (std::unique_ptr<CAlarmParam> owned = std::move(param); owned != nullptr;
         owned = stream->popPart()) {
        const std::size_t bytes = owned->getDocumentBytes();
        const bool broken =
            !stream->ended() && sendPart(*stream, owned->getWire()) == WriteResult::kBroken;
        stream->partDone(bytes);
        if (!broken || !stream->end()) continue;
        CEventPto* owner = owned->getUserPtr();
        if (owner == nullptr) {
            QXW_LOG(5, "getUserPtr failed");
            continue;
        }
        owner->dropBrokenStream(*stream);
        QXW_LOG(5, "[DevIndex=%s]link broken response fail.", stream->getDevIndex().c_str());
    }
    return 0;
}

bool CEventPto::queuePart(const SessionPtr& stream, const SharedAlertPart& part) {
    std::unique_ptr<CAlarmParam> item(new (std::nothrow) CAlarmParam(part, stream, this));
    if (item == nullptr) {
        QXW_LOG(5, "new CAlarmParam failed.");
        return false;
    }
    switch (stream->pushPart(item)) {
        case CAlertStreamSession::Push::kSchedule:
            // Without a pool the stream cannot be served.
            if (!queueAlarmParam(std::move(item))) stream->end();
            break;
        case CAlertStreamSession::Push::kQueued:
        case CAlertStreamSession::Push::kEnded:
            break;
        case CAlertStreamSession::Push::kFull:
            dropBrokenStream(*stream);
            QXW_LOG(5, "[DevIndex=%s]stream queue full, stream ended.",
                    stream->getDevIndex().c_str());
            break;
    }
    return true;
}

// Removes the stream; when it was its device's last, the device leaves the subscription. Both
// under subscriptionMutex, so a stream request of the same device cannot slip in between.
void CEventPto::dropBrokenStream(const CAlertStreamSession& stream) {
    std::lock_guard<std::mutex> lock(subscriptionMutex);
    removeStream(stream.getStreamId());
    const int id = alarmSubscribeId;
    if (id == -1 || !findStreamsByDevice(stream.getDevIndex()).empty()) return;
    std::string reply;
    QX_AlarmBus_DeleteDevice(&reply, id, stream.getDevIndex());
}

}  // namespace QXKORVAProtocol
