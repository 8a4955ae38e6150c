#include "plugin/alert/event_pto.h"

namespace QXKORVAProtocol {

// Placeholder service: declines every request until the alert stream is built.
CEventPto::CEventPto() = default;
CEventPto::~CEventPto() = default;

int CEventPto::start() { return 0; }
int CEventPto::stop() { return 0; }

int CEventPto::matchURL(const std::string&, unsigned char) { return -1; }

int CEventPto::procProtocol(int*, std::string*, int*, const ExchangeHolder&, const std::string&) {
    return -1;
}

}  // namespace QXKORVAProtocol
