// The alert streams open on the KORVA listener, as the gateway sees them: which client holds
// each, for which user and so which device, since when, and how many parts it was handed. The
// request's exchange opens an entry once the stream's head is queued, counts every part the
// connection accepts, and closes the entry when the request ends. Stream open and close are
// published as "stream-open" / "stream-close" events; /admin/state lists the open entries.
// Thread-safe: the table under one short lock; each entry's counters are atomic, so counting a
// part takes no lock.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace korva::gateway {

class AdminEvents;

class StreamTable {
  public:
    struct Entry {
        std::uint64_t id = 0;
        std::uint64_t connectionId = 0;
        std::string devIndex;  // the device of the user's account, "" when unknown
        std::string user;
        std::string client;
        std::chrono::system_clock::time_point opened;
        std::chrono::steady_clock::time_point openedSteady;
        std::atomic<std::uint64_t> parts{0};  // accepted by the connection (heartbeats included)
        std::atomic<std::uint64_t> bytes{0};
        std::atomic<bool> closed{false};
    };

    // `events` may be null.
    explicit StreamTable(AdminEvents* events) : m_events(events) {}

    // Account name -> device index, to name the device of a stream (set before serving).
    void setAccountDevices(std::map<std::string, std::string> devices);

    std::shared_ptr<Entry> open(std::uint64_t connectionId, const std::string& user,
                                const std::string& client);
    // One part of `bytes` accepted for the stream.
    static void countPart(Entry& entry, const std::string& bytes);
    // Idempotent.
    void close(const std::shared_ptr<Entry>& entry);

    struct Snapshot {
        std::uint64_t id, connectionId;
        std::string devIndex, user, client;
        std::chrono::system_clock::time_point opened;
        double ageSeconds;
        std::uint64_t parts, bytes;
    };
    std::vector<Snapshot> snapshot() const;

  private:
    AdminEvents* const m_events;
    std::map<std::string, std::string> m_accountDevices;  // read-only once serving
    mutable std::mutex m_mutex;
    std::map<std::uint64_t, std::shared_ptr<Entry>> m_open;  // guarded
    std::uint64_t m_nextId = 0;                              // guarded
};

}  // namespace korva::gateway
