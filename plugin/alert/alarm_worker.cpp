// CEventPto's workers: each queued part is framed and written to its stream's connection, one
// writer per stream at a time; broken links and full queues end the stream.
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

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

// Writes owned to its stream unless the stream has ended. A broken link ends the stream at
// once (its queued parts are discarded unwritten) and is logged once.
void CEventPto::writeTurnPart(CAlertStreamSession& stream, const CAlarmParam& owned) {
    const std::size_t bytes = owned.getDocumentBytes();
    const bool broken =
        !stream.ended() && sendPart(stream, owned.getWire()) == WriteResult::kBroken;
    stream.partDone(bytes);
    if (!broken || !stream.end()) return;
    CEventPto* owner = owned.getUserPtr();
    if (owner == nullptr) {
        QXW_LOG(5, "getUserPtr failed");
        return;
    }
    owner->dropBrokenStream(stream);
    QXW_LOG(5, "[DevIndex=%s]link broken response fail.", stream.getDevIndex().c_str());
}

// The pool item is the first part of a writer turn of one stream or, for an alarm, of each of
// its device's streams (linked through takeNextTurn): one pool hand-over per alarm, not per
// part. A turn writes its first part, then every part queued for its stream meanwhile, in order,
// and ends when the queue is empty. Turns of one item take one part each in rotation, so a slow
// client delays the other streams of its own device by at most one write per part of theirs,
// and no stream of another device. No lock is held while a part goes out, and parts of one
// stream never interleave.
int CEventPto::fAlarmProcessThread(void* item) {
    std::unique_ptr<CAlarmParam> next(static_cast<CAlarmParam*>(item));  // back from the pool
    if (next == nullptr) {
        QXW_LOG(5, "pCAlarmParam is NULL");
        return 0;
    }
    struct Turn {
        SessionPtr stream;
        std::unique_ptr<CAlarmParam> part;
    };
    std::vector<Turn> turns;
    while (next != nullptr) {
        std::unique_ptr<CAlarmParam> following = next->takeNextTurn();
        SessionPtr stream = next->getAlertStreamSession();
        if (!stream) {
            QXW_LOG(5, "getAlertStreamSession failed");
        } else {
            try {
                if (turns.size() == turns.capacity()) turns.reserve(2 * turns.size() + 2);
                turns.push_back({stream, std::move(next)});  // cannot throw: room is there
            } catch (const std::bad_alloc&) {
                // No room for the rotation: this turn runs to its end on its own, now.
                for (; next != nullptr; next = stream->popPart()) writeTurnPart(*stream, *next);
            }
        }
        next = std::move(following);
    }
    while (!turns.empty()) {
        for (auto turn = turns.begin(); turn != turns.end();) {
            writeTurnPart(*turn->stream, *turn->part);
            turn->part = turn->stream->popPart();
            turn = turn->part != nullptr ? turn + 1 : turns.erase(turn);
        }
    }
    return 0;
}

bool CEventPto::queuePart(const SessionPtr& stream, const SharedAlertPart& part,
                          std::unique_ptr<CAlarmParam>* turns) {
    std::unique_ptr<CAlarmParam> item(new (std::nothrow) CAlarmParam(part, stream, this));
    if (item == nullptr) {
        QXW_LOG(5, "new CAlarmParam failed.");
        return false;
    }
    switch (stream->pushPart(item)) {
        case CAlertStreamSession::Push::kSchedule:
            if (turns != nullptr) {
                item->setNextTurn(std::move(*turns));
                *turns = std::move(item);
            } else {
                startTurns(std::move(item));
            }
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

void CEventPto::startTurns(std::unique_ptr<CAlarmParam> turns) {
    if (turns == nullptr || queueAlarmParam(turns)) return;
    // Without a pool the streams cannot be served: each refused turn ends its stream.
    while (turns != nullptr) {
        std::unique_ptr<CAlarmParam> following = turns->takeNextTurn();
        if (const SessionPtr& stream = turns->getAlertStreamSession()) stream->end();
        turns = std::move(following);
    }
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
