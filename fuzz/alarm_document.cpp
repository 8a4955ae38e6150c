// Alarm documents as the alarm bus delivers them to the alert service: the input is the alarm's
// JSON text. It goes through the service's data routine (CEventPto::fAlarmDataCallBack: parse,
// bus heartbeat, translation, device lookup; the service has no open stream, so nothing is
// queued) and through translateAlarm on its own. Invariants: nothing throws, the routine answers
// the length or -1, and a translated alarm is a well-formed EventNotificationAlert element.
#include <json/reader.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/fuzz_support.h"
#include "host/xml_base.h"
#include "plugin/alert/alarm_translation.h"
#include "plugin/alert/event_pto.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    korva::fuzz::quietHostLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto* text = reinterpret_cast<const char*>(data);
    auto* service = QXKORVAProtocol::CEventPto::getInstance();
    const int result =
        QXKORVAProtocol::CEventPto::fAlarmDataCallBack(text, static_cast<int>(size), service);
    korva::fuzz::require(result == -1 || result == static_cast<int>(size),
                         "data routine answered neither the length nor -1");

    Json::Value root;
    try {
        if (!Json::Reader().parse(text, text + size, root, false)) return 0;
    } catch (const std::exception&) {
        return 0;  // the reader's own refusal of deep nesting
    }
    std::string xml;
    if (!QXKORVAProtocol::translateAlarm(root, &xml)) return 0;
    QXBase::CXmlBase document;
    korva::fuzz::require(document.Parse(xml) && document.FindElem("EventNotificationAlert"),
                         "translated alarm is not a well-formed alert element", xml);
    return 0;
}
