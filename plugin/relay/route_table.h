// Route tables of the device-relay handlers. A handler lists its resources as rows (request path
// pattern, accepted methods, gateway resource, the handler's own entry) and finds the row of a
// request with findRoute; the answer side finds the same row again from the request's URL.
//
// Path patterns follow the host's matching: only the path before "?" is compared, exactly, and
// each "%d" stands for one decimal integer. The paths of one table never match the same URL, so
// the row found does not depend on the order of the rows or on the method.
// Thread safety: tables are constants and every function is pure.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "host/exchange_holder.h"

namespace QXKORVAProtocol {

// The bit of a method code in Route::methods; 0 for a code without one (no route accepts it).
constexpr unsigned methodBit(int method) {
    return method >= 0 && method < 32 ? 1u << method : 0u;
}
inline constexpr unsigned kGetBit = methodBit(QXHttpService::kMethodGet);
inline constexpr unsigned kPutBit = methodBit(QXHttpService::kMethodPut);
inline constexpr unsigned kDeleteBit = methodBit(QXHttpService::kMethodDelete);

// One row of a handler's route table. Entry is the handler's own description of what the route
// does (typically an enumerator its operations switch on).
template <typename Entry>
struct Route {
    const char* path;         // request path pattern
    unsigned methods;         // methodBit of each accepted method
    const char* gatewayPath;  // gateway resource; its "%d" take the request's numbers in order
    Entry entry;

    bool accepts(int method) const { return (methods & methodBit(method)) != 0; }
};

// True when the path of url matches pattern.
bool routePathMatches(const std::string& url, const char* pattern);

// The row whose path matches url, or null.
template <typename Entry>
const Route<Entry>* findRoute(std::span<const Route<Entry>> table, const std::string& url) {
    for (const Route<Entry>& row : table) {
        if (routePathMatches(url, row.path)) return &row;
    }
    return nullptr;
}

// The matchURL answer of a table: 0 when a row matches url and accepts method, -1 otherwise.
template <typename Entry>
int matchRoute(std::span<const Route<Entry>> table, const std::string& url, int method) {
    const Route<Entry>* row = findRoute(table, url);
    return row != nullptr && row->accepts(method) ? 0 : -1;
}

// Reads the integers at the "%d" fields of pattern from url with scanf rules: literal characters
// must match, each field is optional white space, an optional sign and digits (saturating to 32
// bits). Scanning stops at the first mismatch; fields not read stay 0. Returns the number read.
int scanUrlInts(const std::string& url, const char* pattern, int32_t* values, int count);

// The gateway URL of a route (see gateway_url.h): gatewayPath with the numbers read from url at
// the "%d" fields of path (at most two), unchanged and in the same order. False, *jsonUrl
// emptied, when it does not fit.
bool makeRouteUrl(std::string* jsonUrl, const char* path, const char* gatewayPath,
                  const std::string& url, const std::string& devIndex);

template <typename Entry>
bool makeRouteUrl(std::string* jsonUrl, const Route<Entry>& row, const std::string& url,
                  const std::string& devIndex) {
    return makeRouteUrl(jsonUrl, row.path, row.gatewayPath, url, devIndex);
}

// The start of a command request, whose body the handler converts itself: 0 when the exchange
// is there and the row's gateway URL fits; -1 without an exchange, 1 when the URL does not fit.
template <typename Entry>
int startCommand(std::string* jsonUrl, const Route<Entry>& row, const ExchangeHolder& exchange,
                 const std::string& devIndex) {
    if (!exchange.exchange) return -1;
    return makeRouteUrl(jsonUrl, row, exchange.exchange->getUrl(), devIndex) ? 0 : 1;
}

// The request of a row that relays its gateway resource without a body: *jsonUrl composed (as
// makeRouteUrl) and *jsonBody emptied. 0; -1 when the row does not accept method; 9 when the
// URL does not fit.
int relayWithoutBody(std::string* jsonUrl, std::string* jsonBody, const char* path,
                     const char* gatewayPath, bool accepted, const std::string& url,
                     const std::string& devIndex);

template <typename Entry>
int relayWithoutBody(std::string* jsonUrl, std::string* jsonBody, const Route<Entry>& row,
                     const std::string& url, int method, const std::string& devIndex) {
    return relayWithoutBody(jsonUrl, jsonBody, row.path, row.gatewayPath, row.accepts(method), url,
                            devIndex);
}

}  // namespace QXKORVAProtocol
