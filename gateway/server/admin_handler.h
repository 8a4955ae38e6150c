// The admin listener's request handler: alarm injection, device attach/detach, alarm-bus reset,
// the gateway state and the Prometheus metrics. Answers synchronously with JSON (metrics with
// the Prometheus text format).
//
//   POST /admin/alarms                      body to the alarm bus as an alarm of the device named
//                                           in EventNotificationAlert.devIndex (else to every
//                                           subscription); 202
//   POST /admin/devices/{devIndex}/detach   the device goes away (event 1); 200, 404 unknown
//   POST /admin/devices/{devIndex}/attach   the device comes back (event 0); 200, 404 unknown
//   POST /admin/alarm-bus/reset             the bus forgets every subscription; 200
//   GET  /admin/state                       devices, subscriptions, open connections
//   GET  /metrics                           Prometheus text
#pragma once

#include <string>

#include "gateway/server/connection.h"

namespace korva::gateway {

class ConnectionRegistry;
class Metrics;

struct AdminAnswer {
    AdminAnswer(int answerStatus = 200, std::string type = "application/json",
                std::string text = "", std::string methods = "")
        : status(answerStatus),
          contentType(std::move(type)),
          body(std::move(text)),
          allow(std::move(methods)) {}
    int status;
    std::string contentType;
    std::string body;
    std::string allow;  // the Allow header of a 405
};

class AdminHandler : public RequestHandler {
  public:
    // `korvaConnections` are the connections of the KORVA listener (reported in the state).
    AdminHandler(ConnectionRegistry& korvaConnections, Metrics& metrics)
        : m_korvaConnections(korvaConnections), m_metrics(metrics) {}

    void onRequest(const std::shared_ptr<Connection>& connection, HttpRequest&& request) override;

    // The answer to one request (also used directly by tests).
    AdminAnswer handle(const HttpRequest& request);

  private:
    AdminAnswer postAlarm(const std::string& body);
    AdminAnswer changeDevice(const std::string& devIndex, bool attach);
    AdminAnswer state();

    ConnectionRegistry& m_korvaConnections;
    Metrics& m_metrics;
};

// Decodes %XX escapes of a path segment; false on a malformed escape.
bool percentDecode(const std::string& text, std::string* out);

}  // namespace korva::gateway
