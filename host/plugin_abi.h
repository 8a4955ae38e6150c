// The three entry points a protocol plug-in exports (undecorated names), as the host calls them.
#pragma once

#include <string>

#include "host/exchange_holder.h"

extern "C" {
// Called once after loading. Returns 1.
typedef int (*QX_Protocol_Init_Fn)();
// Called once before unloading.
typedef int (*QX_Protocol_Uninit_Fn)();
// Called for every HTTP request, on any request thread. Returns the HTTP status, or -1 when no
// handler took the request (then *handled is 0 and *response holds a JSON status text).
// *asyncReply set to 1: the plug-in answers on the exchange itself, later.
typedef int (*QX_Protocol_HTTPProcess_Fn)(int* handled, std::string* response, int* asyncReply,
                                          const ExchangeHolder& exchange);
}

#define QX_PROTOCOL_INIT_SYMBOL "QX_Protocol_Init"
#define QX_PROTOCOL_UNINIT_SYMBOL "QX_Protocol_Uninit"
#define QX_PROTOCOL_HTTPPROCESS_SYMBOL "QX_Protocol_HTTPProcess"
