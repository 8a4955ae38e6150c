// The recent requests of the KORVA listener(s), for the admin console: a ring of the last
// `capacity` access records (GET /admin/requests), each also published as a "request" event
// (GET /admin/events). Fed by the access log (AccessObserver), so a request appears here exactly
// when its access-log line is written. Requests of the admin listener itself (tag "ADMIN") are
// left out: the console's own polling would push everything else out of the ring.
// Thread-safe: one short lock per record; nothing is written to a connection under it.
#pragma once

#include <json/value.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

#include "gateway/server/access_log.h"

namespace korva::gateway {

class AdminEvents;

class RequestLog : public AccessObserver {
  public:
    struct Entry {
        std::uint64_t seq = 0;  // 1 for the first request recorded, then +1
        std::chrono::system_clock::time_point time;
        std::string listener;  // the listener's log tag ("HTTP")
        std::string client;
        std::string user;    // the Digest username sent, "" for none
        std::string method;  // as in the access log (log-safe text)
        std::string target;  // log-safe, at most kMaxTargetBytes and "..."
        int status = 0;
        std::size_t bytes = 0;
        double durationMs = 0;
    };

    static constexpr std::size_t kDefaultCapacity = 200;
    static constexpr std::size_t kMaxTargetBytes = 512;

    // `events` may be null (no events are published).
    explicit RequestLog(AdminEvents* events, std::size_t capacity = kDefaultCapacity)
        : m_events(events), m_capacity(capacity == 0 ? 1 : capacity) {}

    void onAccess(const char* tag, const AccessRecord& record) noexcept override;

    // GET /admin/requests: {"capacity": N, "requests": [oldest ... newest]}.
    Json::Value toJson() const;
    static Json::Value entryJson(const Entry& entry);
    std::size_t capacity() const { return m_capacity; }

  private:
    AdminEvents* const m_events;
    const std::size_t m_capacity;
    mutable std::mutex m_mutex;
    std::deque<Entry> m_entries;  // guarded
    std::uint64_t m_seq = 0;      // guarded
};

}  // namespace korva::gateway
