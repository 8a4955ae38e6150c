// CEventPto: the alert stream service, "/KORVA/Event/notification/alertStream". One instance
// per loaded plug-in (CSingleton), the last handler asked by the entry point.
#pragma once

#include <string>

#include "plugin/alert/singleton.h"
#include "plugin/pipeline/protocol_base.h"

namespace QXKORVAProtocol {

class CEventPto : public CProtocolBase, public CSingleton<CEventPto> {
public:
    CEventPto();
    ~CEventPto() override;

    // Starts the worker pool, the heartbeat and clean-up timers and the device notifications.
    // 0, or 9 when the pool cannot be created.
    int start();
    // Stops what start started and ends the alarm-bus subscription. Always 0.
    int stop();

    int matchURL(const std::string& url, unsigned char method) override;
    int procProtocol(int* handled, std::string* response, int* asyncReply,
                     const ExchangeHolder& exchange, const std::string& devIndex) override;
};

}  // namespace QXKORVAProtocol
