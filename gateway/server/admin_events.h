// The admin listener's server-sent event stream (GET /admin/events): every subscriber is one
// admin connection whose request became a text/event-stream answer; publish() sends one event to
// all of them.
//
// Bounds, each with its answer:
//  - at most Limits::maxSubscribers subscribers; subscribe() reports kFull beyond (the caller
//    answers 503);
//  - per subscriber, at most Limits::maxQueuedBytes of events accepted and not yet written (the
//    connection's own stream queue holds them; half its maxStreamQueueBytes when that is less). An
//    event that would go past it is dropped for that subscriber and counted; the next event that
//    fits is preceded by "event: dropped" with {"count": N}. A subscriber that reads nothing at all
//    is closed by the connection's write timeout.
//  - a comment line (": keep-alive") goes to every subscriber every Limits::heartbeat, so
//    proxies keep the connection open and a vanished subscriber is found.
//
// Thread-safe: publish() from any thread; subscribe() on the subscriber connection's strand.
// The subscriber list's lock is never held while events are handed to a connection, and
// handing over only queues (Connection::queueStreamPart never waits for the socket).
#pragma once

#include <atomic>
#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace korva::gateway {

class Connection;

class AdminEvents {
  public:
    struct Limits {
        std::size_t maxSubscribers = 8;
        std::size_t maxQueuedBytes = 256 * 1024;
        std::chrono::milliseconds heartbeat{15000};
    };
    enum class Subscribe { kSubscribed, kFull, kClosed };

    explicit AdminEvents(Limits limits) : m_limits(limits) {}
    AdminEvents() : AdminEvents(Limits{}) {}
    ~AdminEvents();
    AdminEvents(const AdminEvents&) = delete;
    AdminEvents& operator=(const AdminEvents&) = delete;

    // Starts the heartbeat timer on `executor`; stop() destroys it (call it before the I/O
    // context is destroyed). The object must outlive the loop's handlers.
    void start(const boost::asio::any_io_executor& executor);
    void stop();

    // Turns the connection's current request into an event stream (head sent, then a first
    // "hello" event) and subscribes it until the connection ends. On the connection's strand.
    Subscribe subscribe(const std::shared_ptr<Connection>& connection);

    // Sends "event: <type>" with one line of JSON data to every subscriber. Cheap when there is
    // none (check hasSubscribers() before building costly data).
    void publish(std::string_view type, const std::string& jsonData);
    bool hasSubscribers() const { return m_count.load(std::memory_order_acquire) != 0; }

    std::size_t subscribers() const { return m_count.load(std::memory_order_acquire); }
    // Events dropped for slow subscribers since start.
    std::uint64_t droppedEvents() const { return m_dropped.load(std::memory_order_relaxed); }
    const Limits& limits() const { return m_limits; }

    // The wire text of one event (exposed for tests).
    static std::string formatEvent(std::string_view type, const std::string& jsonData);

  private:
    struct Subscriber {
        std::uint64_t id = 0;
        std::weak_ptr<Connection> connection;
        std::uint64_t serial = 0;
        std::atomic<std::uint64_t> dropped{0};  // not yet reported to this subscriber
    };
    using SubscriberPtr = std::shared_ptr<Subscriber>;

    std::vector<SubscriberPtr> subscriberList() const;
    // Hands `text` to the subscriber; false when its connection is gone.
    bool deliver(Subscriber& subscriber, const std::string& text);
    void remove(std::uint64_t id);
    void armHeartbeat();
    void heartbeat();

    const Limits m_limits;
    mutable std::mutex m_mutex;
    std::vector<SubscriberPtr> m_subscribers;  // guarded
    std::uint64_t m_nextId = 0;                // guarded
    std::atomic<std::size_t> m_count{0};
    std::atomic<std::uint64_t> m_dropped{0};
    std::optional<boost::asio::steady_timer> m_timer;  // guarded
    bool m_stopped = false;                            // guarded
};

}  // namespace korva::gateway
