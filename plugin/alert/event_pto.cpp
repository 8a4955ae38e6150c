// CEventPto: lifecycle, request matching and the opening of a stream.
#include "plugin/alert/event_pto.h"

#include <new>

#include "host/alarm_bus.h"
#include "host/device_mgr.h"
#include "host/kvl_runtime.h"
#include "host/kvl_timer.h"
#include "plugin/alert/alarm_bus_bodies.h"
#include "plugin/alert/alarm_param.h"
#include "plugin/pipeline/error_catalogue.h"
#include "plugin/pipeline/plugin_log.h"

namespace QXKORVAProtocol {
namespace {

constexpr uint32_t kPoolMaxThreads = 32;
constexpr uint32_t kPoolIdleTimeoutMs = 30000;
constexpr uint32_t kPoolStackSize = 0x40000;

// Puts the status document of errorNumber into *response and returns its HTTP status.
int answerError(uint32_t errorNumber, const std::string& url, std::string* response) {
    *response = CProtocolBase::getResponseByError(static_cast<int>(errorNumber), url);
    return getHttpStatusByErrorNo(errorNumber);
}

// The response head of a stream: multipart MIME chosen by the host, status 200, no body.
void sendStreamHead(QXHttpService::CHttpExchange& exchange) {
    exchange.setMIME();
    exchange.setStatus(200);
    exchange.response(nullptr, 0);
}

}  // namespace

CEventPto::CEventPto() = default;

CEventPto::~CEventPto() {
    stop();
}

int CEventPto::start() {
    KVL_HThreadPoolFlex pool = KVL_ThreadPoolFlex_Create(kPoolMaxThreads, kPoolIdleTimeoutMs,
                                                         fAlarmProcessThread, kPoolStackSize);
    if (pool == nullptr) {
        QXW_LOG(5, "fAlarmProcessThread create threadPoolFlex failed.");
        return 9;
    }
    {
        QXBase::CWriteLockGuard guard(poolLock);
        threadPool = pool;
    }
    if (KVL_SetTimer(sendHeartBeatOnTimer, this, kHeartBeatPeriodMs, &heartBeatTimerId, 0) == -1) {
        QXW_LOG(5, "sendHeartBeatOnTimer kvl_settimer failed[%d]", KVL_GetLastError());
        return 0;
    }
    if (KVL_SetTimer(checkAbnormalOnTimer, this, kAbnormalPeriodMs, &abnormalTimerId, 0) == -1) {
        QXW_LOG(5, "checkAbnormalOnTimer kvl_settimer failed[%d]", KVL_GetLastError());
        return 0;
    }
    QX_DeviceMgr_NotifyAttach(fDeviceNotifyCallBack, this);
    return 0;
}

// Everything that queues parts is stopped before the pool goes: the timers, the device
// notifications and the subscription (whose data routine has ended when UnSubscribe returns).
// The pool then writes what is still queued and is destroyed outside poolLock.
int CEventPto::stop() {
    for (uint32_t* timerId : {&heartBeatTimerId, &abnormalTimerId}) {
        if (*timerId != kNoTimer) {
            KVL_KillTimer(*timerId);
            *timerId = kNoTimer;
        }
    }
    QX_DeviceMgr_NotifyDetach(fDeviceNotifyCallBack);
    {
        std::lock_guard<std::mutex> lock(subscriptionMutex);
        const int id = alarmSubscribeId.exchange(-1);
        if (id != -1) {
            std::string reply;
            if (QX_AlarmBus_UnSubscribe(&reply, id, 1) != 0) {
                QXW_LOG(5, "QX_AlarmBus_UnSubscribe failed");
            }
        }
    }
    KVL_HThreadPoolFlex pool = nullptr;
    {
        QXBase::CWriteLockGuard guard(poolLock);
        std::swap(pool, threadPool);
    }
    if (pool != nullptr) KVL_ThreadPoolFlex_Destroy(pool);
    return 0;
}

int CEventPto::matchURL(const std::string& url, unsigned char method) {
    if (KVL_Strcmp(url.c_str(), kAlertStreamPath) == 0 && method == QXHttpService::kMethodGet) {
        return 0;
    }
    return -1;
}

int CEventPto::procProtocol(int* /*handled*/, std::string* response, int* asyncReply,
                            const ExchangeHolder& exchange, const std::string& devIndex) {
    const std::string url = exchange.exchange ? exchange.exchange->getUrl() : std::string();
    const unsigned char method = exchange.exchange
                                     ? exchange.exchange->getMethod()
                                     : static_cast<unsigned char>(QXHttpService::kMethodOther);
    if (matchURL(url, method) != 0) return answerError(kErrorInternal, url, response);
    return procAlertStream(response, asyncReply, exchange, devIndex);
}

int CEventPto::procAlertStream(std::string* response, int* asyncReply,
                               const ExchangeHolder& exchange, const std::string& devIndex) {
    if (!exchange.exchange) return answerError(kErrorInternal, std::string(), response);
    QXHttpService::CHttpExchange& http = *exchange.exchange;
    int streamId = 0;
    {
        KVL_Guard guard(&streamIdMutex);
        streamId = KVL_AtomicInc(&streamIdSeed);
    }
    SessionPtr session;
    try {
        session = std::make_shared<CAlertStreamSession>(http.getHttpHandle(), streamId, devIndex,
                                                        exchange.exchange);
    } catch (...) {
        QXW_LOG(5, "[sysErr=%d]make_shared session error", KVL_GetSystemLastError());
        return answerError(kErrorBadParameters, http.getUrl(), response);
    }

    const Admission admission = admitStream(session, response);
    if (admission != Admission::kJoined && admission != Admission::kSubscribed) {
        return refuseStream(admission, response, http.getUrl(), devIndex);
    }
    // The stream is in the table but not open: nothing is written to it before its head.
    *asyncReply = 1;
    sendStreamHead(http);
    if (admission == Admission::kSubscribed) QX_AlarmBus_StartUploadData(alarmSubscribeId);
    session->markOpen();
    return 200;
}

// Under subscriptionMutex: checks the device's limit, puts the device on the alarm bus when it
// has no stream yet (subscribing when there is no subscription), and enters the stream into
// the table, so the next request of the device already counts it.
CEventPto::Admission CEventPto::admitStream(const SessionPtr& session, std::string* reply) {
    const std::string& devIndex = session->getDevIndex();
    std::lock_guard<std::mutex> lock(subscriptionMutex);
    const size_t open = streamMap.countByDevice(devIndex);
    if (open >= kMaxStreamsPerDevice) return Admission::kFull;
    Admission admitted = Admission::kJoined;
    if (alarmSubscribeId == -1) {
        int newId = -1;
        if (QX_AlarmBus_Subscribe(&newId, reply, buildSubscribeBody(devIndex), fAlarmDataCallBack,
                                  this, 1) != 0) {
            return Admission::kSubscribeFailed;
        }
        alarmSubscribeId = newId;
        admitted = Admission::kSubscribed;
    } else if (open == 0) {
        std::string addReply;
        if (QX_AlarmBus_AddDevice(&addReply, alarmSubscribeId, devIndex,
                                  buildAddDeviceBody(devIndex)) != 0) {
            return Admission::kAddDeviceFailed;
        }
    }
    streamMap.insert(session);
    return admitted;
}

int CEventPto::refuseStream(Admission why, std::string* response, const std::string& url,
                            const std::string& devIndex) {
    switch (why) {
        case Admission::kSubscribeFailed:
            QXW_LOG(5, "QX_AlarmBus_Subscribe failed.");
            return answerError(kErrorInvalidOperation, url, response);
        case Admission::kAddDeviceFailed:
            QXW_LOG(5, "QX_AlarmBus_AddDevice failed.");
            return answerError(kErrorInvalidOperation, url, response);
        case Admission::kFull:
        default:
            QXW_LOG(5, "[devIndx=%s]This device alertstream number is over max value.",
                    devIndex.c_str());
            return answerError(kErrorNoMoreTasks, url, response);
    }
}

std::vector<CEventPto::SessionPtr> CEventPto::findStreamsByDevice(
    const std::string& devIndex) const {
    return streamMap.findByDevice(devIndex);
}

void CEventPto::removeStream(int streamId) {
    streamMap.remove(streamId);
}

bool CEventPto::queueAlarmParam(std::unique_ptr<CAlarmParam>& item) {
    int queued = -1;
    {
        QXBase::CReadLockGuard guard(poolLock);
        if (threadPool != nullptr) {
            // The pool owns what it accepts; a refused item comes back.
            CAlarmParam* handedOver = item.release();
            queued = KVL_ThreadPoolFlex_Work(threadPool, handedOver);
            if (queued != 0) item.reset(handedOver);
        }
    }
    if (queued == 0) return true;
    QXW_LOG(5, "KVL_ThreadPoolFlex_Work failed, part dropped.");
    return false;
}

}  // namespace QXKORVAProtocol
