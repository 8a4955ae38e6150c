// CEventPto: the alert stream service, "/KORVA/Event/notification/alertStream". One instance
// per loaded plug-in (CSingleton), the last handler asked by the entry point.
//
// A GET of the stream path, once authenticated, opens a stream: the service sends the response
// head itself and keeps the connection, writing one multipart part per alarm of the user's
// device and a heartbeat part whenever the stream has been quiet for five seconds. The whole
// plug-in holds at most one alarm-bus subscription; each device in it has at most two streams.
//
// Threads: request threads (procProtocol), the alarm bus's delivery thread (fAlarmDataCallBack),
// the pool's workers (fAlarmProcessThread), the runtime's timer threads (sendHeartBeatOnTimer,
// checkAbnormalOnTimer) and the device manager's thread (fDeviceNotifyCallBack).
//
// Locks, always taken in this order, none held while writing to a connection:
//   subscriptionMutex  makes each change of the subscription's membership one step together
//                      with the table change that causes it: subscribe or add a device and
//                      insert the stream; remove a stream and delete its device when it was the
//                      last; unsubscribe when the table is empty. So two first requests make one
//                      subscription and concurrent requests of a device never open a third
//                      stream. Bus calls may be made under it; the bus never calls back into it.
//   streamMap's lock   the reader/writer lock of the stream table, short holds.
//   poolLock           read side while queueing a part, write side while the pool goes away.
//
// Bounds: each stream's queue holds at most CAlertStreamSession::kMaxQueuedBytes (a full queue
// ends the stream as a broken link does), and the pool holds at most one item per open stream
// (the first part of a writer turn), so neither grows with the alarm rate.
//   streamIdMutex      the stream id counter.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/kvl_mutex.h"
#include "host/kvl_thread_pool.h"
#include "host/rw_lock.h"
#include "plugin/alert/alert_part.h"
#include "plugin/alert/alert_stream_session.h"
#include "plugin/alert/singleton.h"
#include "plugin/alert/stream_table.h"
#include "plugin/pipeline/protocol_base.h"

namespace QXKORVAProtocol {

class CAlarmParam;

class CEventPto : public CProtocolBase, public CSingleton<CEventPto> {
  public:
    using SessionPtr = std::shared_ptr<CAlertStreamSession>;

    static constexpr const char* kAlertStreamPath = "/KORVA/Event/notification/alertStream";
    static constexpr uint32_t kNoTimer = 0xFFFFFFFFu;
    static constexpr uint32_t kHeartBeatPeriodMs = 1000;
    static constexpr uint32_t kQuietTimeMs = 5000;
    static constexpr uint32_t kAbnormalPeriodMs = 10000;
    static constexpr int32_t kMaxSendFailCount = 204800;
    static constexpr size_t kMaxStreamsPerDevice = 2;

    CEventPto();
    // Stops whatever is still running (the process-wide instance is never destroyed).
    ~CEventPto() override;

    // Starts the worker pool, the heartbeat and clean-up timers and the device notifications.
    // 0, or 9 when the pool cannot be created. Not concurrent with stop.
    int start();
    // Stops what start started and ends the alarm-bus subscription. Always 0. The stream table
    // keeps its records.
    int stop();

    // 0 for a GET of exactly the stream path (no query, no trailing "/"), -1 otherwise.
    int matchURL(const std::string& url, unsigned char method) override;
    // Opens the stream (procAlertStream) when the exchange still asks for it; 500 otherwise.
    int procProtocol(int* handled, std::string* response, int* asyncReply,
                     const ExchangeHolder& exchange, const std::string& devIndex) override;
    // Turns the request into an open stream of devIndex: 200 with *asyncReply = 1 and the head
    // sent, or an error status with its document in *response.
    int procAlertStream(std::string* response, int* asyncReply, const ExchangeHolder& exchange,
                        const std::string& devIndex);

    // Stream table.
    std::vector<SessionPtr> findStreamsByDevice(const std::string& devIndex) const;
    void removeStream(int streamId);
    CAlertStreamTable& streams() { return streamMap; }

    // -1 while there is no subscription.
    int getAlarmSubscribeId() const { return alarmSubscribeId.load(); }
    uint32_t getHeartBeatTimerId() const { return heartBeatTimerId; }
    uint32_t getAbnormalTimerId() const { return abnormalTimerId; }

    // Queues the framed part for stream (see CAlertStreamSession::pushPart); the text is shared,
    // not copied. A full stream queue ends the stream as a broken link does. When the part
    // starts a writer turn, it goes to the pool at once, or, with turns given, is prepended to
    // that list for one startTurns call later (the caller must make it). False only when the
    // queue entry could not be allocated.
    bool queuePart(const SessionPtr& stream, const SharedAlertPart& part,
                   std::unique_ptr<CAlarmParam>* turns = nullptr);
    // Hands a list of writer turns (linked through CAlarmParam::takeNextTurn) to the worker
    // pool as one item; when the pool refuses it, their streams are ended.
    void startTurns(std::unique_ptr<CAlarmParam> turns);
    // Hands item to the worker pool. False when the pool refused it; item then stays with the
    // caller.
    bool queueAlarmParam(std::unique_ptr<CAlarmParam>& item);

    // Worker routine: runs the writer turns of one pool item (CAlarmParam*). Result ignored.
    static int fAlarmProcessThread(void* item);
    // Writes one part of a writer turn; a broken link ends and drops the stream.
    static void writeTurnPart(CAlertStreamSession& stream, const CAlarmParam& owned);
    // Alarm-bus data routine: translates one alarm and queues it for every open stream of its
    // device. The length when queued, without stream, or a bus heartbeat; -1 otherwise.
    static int fAlarmDataCallBack(const char* data, int length, void* user);
    // Heartbeat timer routine: queues a heartbeat for each stream quiet for kQuietTimeMs.
    static int sendHeartBeatOnTimer(uint32_t timerId, void* user);
    // Clean-up timer routine: drops failing streams, their devices and an unused subscription.
    static int checkAbnormalOnTimer(uint32_t timerId, void* user);
    // Device manager routine: event 1 (device gone) ends every stream of the device.
    static void fDeviceNotifyCallBack(int event, const char* devIndex, void* user);
    // The heartbeat document of stream into *xml; counts the heartbeat. Always 1.
    static int buildHeartBeatXml(CAlertStreamSession& stream, std::string* xml);

  private:
    enum class Admission { kJoined, kSubscribed, kSubscribeFailed, kAddDeviceFailed, kFull };

    Admission admitStream(const SessionPtr& session, std::string* reply);
    int refuseStream(Admission why, std::string* response, const std::string& url,
                     const std::string& devIndex);
    void dropBrokenStream(const CAlertStreamSession& stream);
    void checkAbnormal();

    std::atomic<int32_t> alarmSubscribeId{-1};
    KVL_Mutex streamIdMutex;
    volatile int32_t streamIdSeed = -1;
    CAlertStreamTable streamMap;  // with streamLock, its reader/writer lock
    QXBase::CRWLock poolLock;
    KVL_HThreadPoolFlex threadPool = nullptr;
    uint32_t heartBeatTimerId = kNoTimer;
    uint32_t abnormalTimerId = kNoTimer;
    std::mutex subscriptionMutex;
};

}  // namespace QXKORVAProtocol
