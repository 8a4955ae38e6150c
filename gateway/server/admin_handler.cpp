#include "gateway/server/admin_handler.h"

#include <json/json.h>

#include <array>
#include <exception>

#include "gateway/console/console_assets.h"
#include "gateway/hostlib/hex_digit.h"
#include "gateway/hostlib/host_alarms.h"
#include "gateway/hostlib/host_devices.h"
#include "gateway/hostlib/json_text.h"
#include "gateway/hostlib/time_text.h"
#include "gateway/server/admin_events.h"
#include "gateway/server/connection_registry.h"
#include "gateway/server/metrics.h"
#include "gateway/server/request_log.h"
#include "gateway/server/stream_table.h"

namespace korva::gateway {

namespace http = boost::beast::http;

namespace {

constexpr const char* kDevicesPrefix = "/admin/devices/";

std::string compact(const Json::Value& value) {
    return korva::host::writeCompactJson(value) + "\n";
}

AdminAnswer jsonAnswer(int status, const Json::Value& value) {
    return {status, "application/json", compact(value)};
}

AdminAnswer errorAnswer(int status, const std::string& text, HeaderList headers = {}) {
    return {status, "application/json", jsonError(status, text), std::move(headers)};
}

AdminAnswer wrongMethod(const char* allowed) {
    return errorAnswer(405, std::string("use ") + allowed, {{"Allow", allowed}});
}

// The device an alarm document names, "" when it names none or is not JSON within the limits
// (too deep, too large, not JSON at all): such an alarm goes to every subscription.
std::string alarmDevice(const std::string& body) {
    Json::Value root;
    if (!korva::host::parseJsonText(body, korva::host::JsonLimits{}, &root)) return "";
    if (!root.isObject()) return "";
    const Json::Value& alert = root["EventNotificationAlert"];
    if (!alert.isObject()) return "";
    const Json::Value& devIndex = alert["devIndex"];
    return devIndex.isString() ? devIndex.asString() : "";
}

// A body of a POST that takes none: empty or a JSON object (ignored). The problem, or "".
std::string unexpectedBody(const std::string& body) {
    if (body.empty()) return "";
    Json::Value root;
    korva::host::JsonProblem problem;
    if (!korva::host::parseJsonText(body, korva::host::JsonLimits{}, &root, &problem)) {
        return "body is not JSON: " + problem.problem;
    }
    return root.isObject() ? "" : "body must be empty or a JSON object";
}

std::string pathOf(const HttpRequest& request) {
    std::string path(request.target());
    if (const auto query = path.find('?'); query != std::string::npos) path.resize(query);
    return path;
}

// The page runs no script but its own, in no frame, and sends no Referer.
const HeaderList kPageHeaders = {
    {"Cache-Control", "no-cache"},
    {"X-Content-Type-Options", "nosniff"},
    {"X-Frame-Options", "DENY"},
    {"Referrer-Policy", "no-referrer"},
    {"Content-Security-Policy",
     "default-src 'self'; img-src 'self' data:; frame-ancestors 'none'; base-uri 'none'; "
     "form-action 'none'"}};

int hexValue(char c) {
    return korva::host::hexDigitValue(c);
}

}  // namespace

bool percentDecode(const std::string& text, std::string* out) {
    out->clear();
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out->push_back(text[i]);
            continue;
        }
        if (i + 2 >= text.size()) return false;
        const int high = hexValue(text[i + 1]);
        const int low = hexValue(text[i + 2]);
        if (high < 0 || low < 0) return false;
        out->push_back(static_cast<char>(high * 16 + low));
        i += 2;
    }
    return true;
}

void AdminHandler::onRequest(const std::shared_ptr<Connection>& connection, HttpRequest&& request) {
    try {
        AdminAnswer answer;
        if (pathOf(request) == "/admin/events") {
            if (subscribeEvents(connection, request, &answer)) return;
        } else {
            answer = handle(request);
        }
        answer.headers.emplace_back("Content-Type", answer.contentType);
        connection->answer(answer.status, answer.headers, std::move(answer.body));
    } catch (...) {
        connection->close();  // no memory left even for an answer: the client sees the close
    }
}

bool AdminHandler::subscribeEvents(const std::shared_ptr<Connection>& connection,
                                   const HttpRequest& request, AdminAnswer* answer) {
    *answer = handle(request);  // the access checks, the method and the missing hub
    if (answer->status != 200) return false;
    switch (m_events->subscribe(connection)) {
        case AdminEvents::Subscribe::kSubscribed:
        case AdminEvents::Subscribe::kClosed:
            return true;
        case AdminEvents::Subscribe::kFull:
            break;
    }
    *answer = errorAnswer(503,
                          "too many event subscribers (at most " +
                              std::to_string(m_events->limits().maxSubscribers) + ")",
                          {{"Retry-After", "5"}});
    return false;
}

AdminAnswer AdminHandler::handle(const HttpRequest& request) {
    try {
        const bool page = findConsoleAsset(pathOf(request)) != nullptr;
        if (auto refusal = m_access.check(request, !page)) {
            HeaderList headers;
            if (refusal->challenge) {
                headers.emplace_back("WWW-Authenticate", "Bearer realm=\"korva-admin\"");
            }
            return errorAnswer(refusal->status, refusal->text, std::move(headers));
        }
        return route(request);
    } catch (const std::exception& error) {
        return errorAnswer(500, std::string("internal error: ") + error.what());
    } catch (...) {
        return errorAnswer(500, "internal error");
    }
}

AdminAnswer AdminHandler::route(const HttpRequest& request) {
    const std::string path = pathOf(request);
    const auto verb = request.method();
    const bool get = verb == http::verb::get || verb == http::verb::head;
    const bool post = verb == http::verb::post;
    const std::string bodyProblem =
        post && path != "/admin/alarms" ? unexpectedBody(request.body()) : std::string();

    if (path == "/metrics") {
        if (!get) return wrongMethod("GET, HEAD");
        return {200, "text/plain; version=0.0.4", m_metrics.render(m_korvaConnections.size())};
    }
    if (path == "/admin/state") {
        if (!get) return wrongMethod("GET, HEAD");
        return state();
    }
    if (path == "/admin/requests" && m_requests) {
        if (!get) return wrongMethod("GET, HEAD");
        return jsonAnswer(200, m_requests->toJson());
    }
    if (path == "/admin/events" && m_events) {
        // Reached only from subscribeEvents: 200 here means "subscribe now".
        if (!get) return wrongMethod("GET, HEAD");
        return {200, "text/event-stream", ""};
    }
    if (findConsoleAsset(path)) {
        if (!get) return wrongMethod("GET, HEAD");
        return consoleFile(path);
    }
    if (path == "/admin/alarms") {
        if (!post) return wrongMethod("POST");
        return postAlarm(request.body());
    }
    if (path == "/admin/alarm-bus/reset") {
        if (!post) return wrongMethod("POST");
        if (!bodyProblem.empty()) return errorAnswer(400, bodyProblem);
        korva::host::resetAlarmBus();
        return jsonAnswer(200, Json::Value(Json::objectValue));
    }
    if (path.rfind(kDevicesPrefix, 0) == 0) {
        const std::string rest = path.substr(std::char_traits<char>::length(kDevicesPrefix));
        const auto slash = rest.rfind('/');
        if (slash != std::string::npos && slash > 0) {
            const std::string action = rest.substr(slash + 1);
            std::string devIndex;
            if (!percentDecode(rest.substr(0, slash), &devIndex)) {
                return errorAnswer(400, "malformed device index");
            }
            if (action == "attach" || action == "detach") {
                if (!post) return wrongMethod("POST");
                if (!bodyProblem.empty()) return errorAnswer(400, bodyProblem);
                return changeDevice(devIndex, action == "attach");
            }
        }
    }
    return errorAnswer(404, "no such admin resource");
}

AdminAnswer AdminHandler::postAlarm(const std::string& body) {
    const std::string devIndex = alarmDevice(body);
    if (!korva::host::publishAlarm(devIndex, body)) {
        m_metrics.countAlarmRefused();
        return errorAnswer(503, "the alarm bus is full; the alarm was not taken",
                           {{"Retry-After", "1"}});
    }
    m_metrics.countAlarmPublished();
    Json::Value answer(Json::objectValue);
    answer["accepted"] = true;
    answer["devIndex"] = devIndex.empty() ? Json::Value() : Json::Value(devIndex);
    return jsonAnswer(202, answer);
}

AdminAnswer AdminHandler::changeDevice(const std::string& devIndex, bool attach) {
    bool known = false;
    for (const auto& device : korva::host::listDevices())
        known = known || device.devIndex == devIndex;
    if (!known) return errorAnswer(404, "unknown device " + devIndex);
    // Both calls report false when nothing changes (already in that state); that is no error.
    if (attach) {
        korva::host::reattachDevice(devIndex);
    } else {
        korva::host::detachDevice(devIndex);
    }
    Json::Value answer(Json::objectValue);
    answer["devIndex"] = devIndex;
    answer["attached"] = attach;
    return jsonAnswer(200, answer);
}

AdminAnswer AdminHandler::consoleFile(const std::string& path) {
    const ConsoleAsset* asset = findConsoleAsset(path);
    return {200, std::string(asset->contentType), std::string(asset->bytes), kPageHeaders};
}

AdminAnswer AdminHandler::state() {
    Json::Value root(Json::objectValue);
    Json::Value& devices = root["devices"] = Json::Value(Json::arrayValue);
    for (const auto& device : korva::host::listDevices()) {
        Json::Value entry(Json::objectValue);
        entry["devIndex"] = device.devIndex;
        entry["attached"] = device.attached;
        devices.append(entry);
    }
    Json::Value& subscriptions = root["subscriptions"] = Json::Value(Json::arrayValue);
    for (const auto& subscription : korva::host::listSubscriptions()) {
        Json::Value entry(Json::objectValue);
        entry["id"] = subscription.id;
        entry["started"] = subscription.started;
        Json::Value& list = entry["devices"] = Json::Value(Json::arrayValue);
        for (const auto& device : subscription.devices) list.append(device);
        subscriptions.append(entry);
    }
    Json::Value& connections = root["connections"] = Json::Value(Json::objectValue);
    const auto entries = m_korvaConnections.snapshot();
    connections["open"] = static_cast<Json::UInt64>(entries.size());
    connections["streams"] = static_cast<Json::Int64>(m_metrics.openStreams());
    Json::Value& list = connections["list"] = Json::Value(Json::arrayValue);
    for (const auto& entry : entries) {
        Json::Value item(Json::objectValue);
        item["id"] = static_cast<Json::UInt64>(entry.id);
        item["peer"] = entry.peer;
        item["phase"] = entry.phase;
        item["queuedBytes"] = static_cast<Json::UInt64>(entry.queuedStreamBytes);
        list.append(item);
    }
    if (m_events) {
        Json::Value& events = root["events"] = Json::Value(Json::objectValue);
        events["subscribers"] = static_cast<Json::UInt64>(m_events->subscribers());
        events["maxSubscribers"] = static_cast<Json::UInt64>(m_events->limits().maxSubscribers);
        events["dropped"] = static_cast<Json::UInt64>(m_events->droppedEvents());
    }
    Json::Value& streams = root["streams"] = Json::Value(Json::arrayValue);
    if (m_streams) {
        for (const auto& stream : m_streams->snapshot()) {
            Json::Value item(Json::objectValue);
            item["id"] = static_cast<Json::UInt64>(stream.id);
            item["devIndex"] = stream.devIndex;
            item["user"] = stream.user;
            item["client"] = stream.client;
            item["connection"] = static_cast<Json::UInt64>(stream.connectionId);
            item["openedAt"] =
                korva::host::timestampText(stream.opened, korva::host::TimeZone::kUtc);
            item["ageSeconds"] =
                static_cast<double>(static_cast<long long>(stream.ageSeconds * 10)) / 10;
            item["parts"] = static_cast<Json::UInt64>(stream.parts);
            item["bytes"] = static_cast<Json::UInt64>(stream.bytes);
            std::size_t queued = 0;
            for (const auto& entry : entries) {
                if (entry.id == stream.connectionId) queued = entry.queuedStreamBytes;
            }
            item["queuedBytes"] = static_cast<Json::UInt64>(queued);
            streams.append(item);
        }
    }
    return jsonAnswer(200, root);
}

}  // namespace korva::gateway
