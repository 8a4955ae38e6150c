// The plug-in's exported entry points, as the library defines them (the host resolves them by
// name; see host/plugin_abi.h for the types it uses).
#pragma once

#include <string>

#include "host/exchange_holder.h"

extern "C" {
int QX_Protocol_Init();
int QX_Protocol_Uninit();
int QX_Protocol_HTTPProcess(int* handled, std::string* response, int* asyncReply,
                            const ExchangeHolder& exchange);
}
