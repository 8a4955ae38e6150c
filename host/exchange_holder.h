// The host's per-request record handed to QX_Protocol_HTTPProcess.
#pragma once

#include <memory>

#include "host/http_exchange.h"

struct ExchangeHolder {
    // Shared ownership of the request's exchange; copy it to keep the exchange beyond a call.
    std::shared_ptr<QXHttpService::CHttpExchange> exchange;
    // NUL-terminated request body (the XML sent with PUT and POST); may be null.
    const char* body = nullptr;
};
