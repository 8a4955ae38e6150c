// The chain of device-relay handlers offered every request, in their fixed order.
#pragma once

#include <string>

#include "host/exchange_holder.h"

namespace QXKORVAProtocol {

// Constructs each handler in chain order, offers it the request with proc and destroys it.
// Returns the first result other than -1, or -1 when no handler took the request. Keeps no
// state; thread-safe.
int procHandlerChain(int* handled, std::string* response, int* asyncReply,
                     const ExchangeHolder& exchange);

}  // namespace QXKORVAProtocol
