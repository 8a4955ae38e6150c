#include "plugin/alert/alert_stream_session.h"

#include "host/kvl_runtime.h"
#include "plugin/alert/alarm_param.h"

namespace QXKORVAProtocol {

CAlertStreamSession::CAlertStreamSession(int httpHandle, int streamId, std::string devIndex)
    : lastSendTick(KVL_GetTimeTick()),
      m_httpHandle(httpHandle),
      m_streamId(streamId),
      m_devIndex(std::move(devIndex)) {}

CAlertStreamSession::~CAlertStreamSession() {
    while (m_first != nullptr) {
        CAlarmParam* next = m_first->m_next;
        delete m_first;
        m_first = next;
    }
}

bool CAlertStreamSession::pushPart(CAlarmParam* item) noexcept {
    item->m_next = nullptr;
    std::lock_guard<std::mutex> lock(m_queueMutex);
    if (m_last == nullptr) {
        m_first = item;
    } else {
        m_last->m_next = item;
    }
    m_last = item;
    if (m_writing) return false;
    m_writing = true;
    return true;
}

CAlarmParam* CAlertStreamSession::popPart() noexcept {
    std::lock_guard<std::mutex> lock(m_queueMutex);
    CAlarmParam* item = m_first;
    if (item == nullptr) {
        m_writing = false;
        return nullptr;
    }
    m_first = item->m_next;
    if (m_first == nullptr) m_last = nullptr;
    item->m_next = nullptr;
    return item;
}

}  // namespace QXKORVAProtocol
