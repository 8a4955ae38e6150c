#include "gateway/server/admin_events.h"

#include <algorithm>

#include "gateway/hostlib/json_text.h"
#include "gateway/server/connection.h"

namespace korva::gateway {

namespace {

constexpr const char* kKeepAlive = ": keep-alive\n\n";

// The data of the "hello" event: how many watch, and how many may.
std::string helloData(std::size_t subscribers, std::size_t limit) {
    Json::Value hello(Json::objectValue);
    hello["subscribers"] = static_cast<Json::UInt64>(subscribers);
    hello["limit"] = static_cast<Json::UInt64>(limit);
    return korva::host::writeCompactJson(hello);
}

}  // namespace

AdminEvents::~AdminEvents() {
    stop();
}

std::string AdminEvents::formatEvent(std::string_view type, const std::string& jsonData) {
    // jsonData is one line (compact JSON); a line break in it would end the data field early.
    std::string text;
    text.reserve(type.size() + jsonData.size() + 16);
    text += "event: ";
    text += type;
    text += "\ndata: ";
    for (char c : jsonData) {
        if (c != '\n' && c != '\r') text += c;
    }
    text += "\n\n";
    return text;
}

void AdminEvents::start(const boost::asio::any_io_executor& executor) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stopped = false;
    m_timer.emplace(executor);
    armHeartbeat();
}

void AdminEvents::stop() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stopped = true;
    m_timer.reset();  // cancels the pending wait; the timer must go before its I/O context
}

void AdminEvents::armHeartbeat() {
    m_timer->expires_after(m_limits.heartbeat);
    m_timer->async_wait([this](boost::system::error_code ec) {
        if (ec) return;
        heartbeat();
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_stopped && m_timer) armHeartbeat();
    });
}

void AdminEvents::heartbeat() {
    const std::string text = kKeepAlive;
    for (const auto& subscriber : subscriberList()) {
        if (!deliver(*subscriber, text)) remove(subscriber->id);
    }
}

AdminEvents::Subscribe AdminEvents::subscribe(const std::shared_ptr<Connection>& connection) {
    auto subscriber = std::make_shared<Subscriber>();
    subscriber->connection = connection;
    subscriber->serial = connection->requestSerial();
    {
        // Held while the head is queued (beginStream only posts), so that no event can be
        // handed to the connection before its stream has begun.
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_subscribers.size() >= m_limits.maxSubscribers) return Subscribe::kFull;
        if (!connection->beginStream(subscriber->serial, 200,
                                     {{"Content-Type", "text/event-stream"},
                                      {"Cache-Control", "no-store"},
                                      {"X-Content-Type-Options", "nosniff"}})) {
            return Subscribe::kClosed;
        }
        subscriber->id = ++m_nextId;
        m_subscribers.push_back(subscriber);
        m_count.store(m_subscribers.size(), std::memory_order_release);
    }
    connection->setRequestCleanup([this, id = subscriber->id] { remove(id); });
    const std::string hello =
        "retry: 2000\n" + formatEvent("hello", helloData(subscribers(), m_limits.maxSubscribers));
    if (!deliver(*subscriber, hello)) remove(subscriber->id);
    return Subscribe::kSubscribed;
}

void AdminEvents::publish(std::string_view type, const std::string& jsonData) {
    if (!hasSubscribers()) return;
    const std::string text = formatEvent(type, jsonData);
    for (const auto& subscriber : subscriberList()) {
        if (!deliver(*subscriber, text)) remove(subscriber->id);
    }
}

bool AdminEvents::deliver(Subscriber& subscriber, const std::string& text) {
    const auto connection = subscriber.connection.lock();
    if (!connection || connection->closed()) return false;
    // Below the connection's own bound, which would close the stream instead.
    const std::size_t bound =
        std::min(m_limits.maxQueuedBytes, connection->limits().maxStreamQueueBytes / 2);
    if (connection->queuedStreamBytes() + text.size() > bound) {
        subscriber.dropped.fetch_add(1, std::memory_order_relaxed);
        m_dropped.fetch_add(1, std::memory_order_relaxed);
        return true;  // still subscribed: it is told about the loss once it catches up
    }
    std::string part;
    if (const auto lost = subscriber.dropped.exchange(0, std::memory_order_relaxed); lost != 0) {
        Json::Value dropped(Json::objectValue);
        dropped["count"] = static_cast<Json::UInt64>(lost);
        part = formatEvent("dropped", korva::host::writeCompactJson(dropped));
    }
    part += text;
    return connection->queueStreamPart(subscriber.serial, std::move(part));
}

std::vector<AdminEvents::SubscriberPtr> AdminEvents::subscriberList() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_subscribers;
}

void AdminEvents::remove(std::uint64_t id) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_subscribers.erase(std::remove_if(m_subscribers.begin(), m_subscribers.end(),
                                       [id](const SubscriberPtr& s) { return s->id == id; }),
                        m_subscribers.end());
    m_count.store(m_subscribers.size(), std::memory_order_release);
}

}  // namespace korva::gateway
