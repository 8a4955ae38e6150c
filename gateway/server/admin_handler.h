// The admin listener's request handler: alarm injection, device attach/detach, alarm-bus reset,
// the gateway state, the Prometheus metrics, the recent requests, the event stream and the
// console page. Answers synchronously with JSON (metrics with the Prometheus text format, the
// page with its files, events with a text/event-stream that stays open); every request first
// passes the AdminAccess checks (the page's files without the token).
//
//   POST /admin/alarms                      body to the alarm bus as an alarm of the device named
//                                           in EventNotificationAlert.devIndex (else, and when
//                                           the body is not JSON within the limits, to every
//                                           subscription); 202, 503 when the bus is full
//   POST /admin/devices/{devIndex}/detach   the device goes away (event 1); 200, 404 unknown
//   POST /admin/devices/{devIndex}/attach   the device comes back (event 0); 200, 404 unknown
//   POST /admin/alarm-bus/reset             the bus forgets every subscription; 200
//   GET  /admin/state                       devices, subscriptions, open connections, open
//                                           alert streams (device, user, client, age, parts),
//                                           event subscribers and events dropped
//   GET  /admin/requests                    the last RequestLog::kDefaultCapacity requests of
//                                           the KORVA listener, oldest first
//   GET  /admin/events                      server-sent events: request, stream-open,
//                                           stream-close, device, dropped; 503 beyond
//                                           AdminEvents::Limits::maxSubscribers
//   GET  /metrics                           Prometheus text
//   GET  /, /console.js, /console.css       the console page (no token needed to load it)
// HEAD is routed like GET (the connection sends no body). The POST paths other than
// /admin/alarms take an empty body or a JSON object (ignored); anything else is 400. No
// exception leaves the handler: an unexpected one is answered 500 with a JSON error.
#pragma once

#include <string>

#include "gateway/server/admin_access.h"
#include "gateway/server/connection.h"
#include "gateway/server/header_list.h"
#include "gateway/server/json_error.h"

namespace korva::gateway {

class AdminEvents;
class ConnectionRegistry;
class Metrics;
class RequestLog;
class StreamTable;

struct AdminAnswer {
    int status = 200;
    std::string contentType = "application/json";
    std::string body;
    HeaderList headers = {};  // besides Content-Type (Allow, WWW-Authenticate)
};

class AdminHandler : public RequestHandler {
  public:
    // `korvaConnections` are the connections of the KORVA listener (reported in the state).
    AdminHandler(ConnectionRegistry& korvaConnections, Metrics& metrics)
        : m_korvaConnections(korvaConnections), m_metrics(metrics) {}

    // Who may call; set before the listener starts (the default refuses foreign Hosts of port 0).
    void setAccess(AdminAccess access) { m_access = std::move(access); }
    // What the console calls read (set before the listener starts; without them
    // /admin/requests and /admin/events answer 404 and the state lists no streams).
    void setConsoleSources(RequestLog* requests, AdminEvents* events, StreamTable* streams) {
        m_requests = requests;
        m_events = events;
        m_streams = streams;
    }

    void onRequest(const std::shared_ptr<Connection>& connection, HttpRequest&& request) override;

    // The answer to one request (also used directly by tests). Never throws.
    AdminAnswer handle(const HttpRequest& request);

  private:
    AdminAnswer route(const HttpRequest& request);
    AdminAnswer postAlarm(const std::string& body);
    AdminAnswer changeDevice(const std::string& devIndex, bool attach);
    AdminAnswer state();
    AdminAnswer consoleFile(const std::string& path);
    // GET /admin/events: true when the request became an event stream (or its connection is
    // gone); false leaves `answer` to be sent.
    bool subscribeEvents(const std::shared_ptr<Connection>& connection, const HttpRequest& request,
                         AdminAnswer* answer);

    ConnectionRegistry& m_korvaConnections;
    Metrics& m_metrics;
    AdminAccess m_access;
    RequestLog* m_requests = nullptr;
    AdminEvents* m_events = nullptr;
    StreamTable* m_streams = nullptr;
};

// Decodes %XX escapes of a path segment; false on a malformed escape.
bool percentDecode(const std::string& text, std::string* out);

}  // namespace korva::gateway
