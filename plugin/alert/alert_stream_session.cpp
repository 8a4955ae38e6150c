#include "plugin/alert/alert_stream_session.h"

#include "host/kvl_runtime.h"
#include "plugin/alert/alarm_param.h"

namespace QXKORVAProtocol {

CAlertStreamSession::CAlertStreamSession(int httpHandle, int streamId, std::string devIndex,
                                         std::shared_ptr<QXHttpService::CHttpExchange> exchange)
    : lastSendTick(KVL_GetTimeTick()),
      m_httpHandle(httpHandle),
      m_streamId(streamId),
      m_devIndex(std::move(devIndex)),
      m_exchange(std::move(exchange)) {}

CAlertStreamSession::~CAlertStreamSession() {
    freeQueueLocked();  // the last owner: nobody else can reach the queue
}

// Frees the parts one by one, so that a long queue is not freed by recursion through m_next.
void CAlertStreamSession::freeQueueLocked() noexcept {
    while (m_first != nullptr) {
        m_queuedBytes -= m_first->getDocumentBytes();
        m_first = std::move(m_first->m_next);
    }
    m_last = nullptr;
}

CAlertStreamSession::Push CAlertStreamSession::pushPart(
    std::unique_ptr<CAlarmParam>& item) noexcept {
    const std::size_t bytes = item->getDocumentBytes();
    std::lock_guard<std::mutex> lock(m_queueMutex);
    if (m_ended) return Push::kEnded;
    if (m_queuedBytes + bytes > kMaxQueuedBytes) {
        m_ended = true;
        freeQueueLocked();
        return Push::kFull;
    }
    m_queuedBytes += bytes;
    if (!m_writing) {
        m_writing = true;
        return Push::kSchedule;
    }
    item->releaseStream();  // the queue must not keep its own stream alive
    CAlarmParam* last = item.get();
    if (m_last == nullptr) {
        m_first = std::move(item);
    } else {
        m_last->m_next = std::move(item);
    }
    m_last = last;
    return Push::kQueued;
}

std::unique_ptr<CAlarmParam> CAlertStreamSession::popPart() noexcept {
    std::lock_guard<std::mutex> lock(m_queueMutex);
    if (m_first == nullptr || m_ended) {
        m_writing = false;
        return nullptr;
    }
    std::unique_ptr<CAlarmParam> item = std::move(m_first);
    m_first = std::move(item->m_next);
    if (m_first == nullptr) m_last = nullptr;
    return item;
}

void CAlertStreamSession::partDone(std::size_t bytes) noexcept {
    std::lock_guard<std::mutex> lock(m_queueMutex);
    m_queuedBytes -= bytes;
}

bool CAlertStreamSession::end() noexcept {
    std::lock_guard<std::mutex> lock(m_queueMutex);
    if (m_ended) return false;
    m_ended = true;
    freeQueueLocked();
    return true;
}

bool CAlertStreamSession::ended() const {
    std::lock_guard<std::mutex> lock(m_queueMutex);
    return m_ended;
}

bool CAlertStreamSession::idle() const {
    std::lock_guard<std::mutex> lock(m_queueMutex);
    return !m_writing && m_first == nullptr;
}

std::size_t CAlertStreamSession::queuedBytes() const {
    std::lock_guard<std::mutex> lock(m_queueMutex);
    return m_queuedBytes;
}

}  // namespace QXKORVAProtocol
