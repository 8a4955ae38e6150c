// Failed digest logins counted per (user name, client address), and the locks they lead to.
// Known and unknown user names share the table and its eviction, so the answers cannot tell
// them apart.
//
// Bounded: at most `capacity` pairs. A pair without failures has no entry (a success removes
// it; a lock that has run out is forgotten). When a new pair must be counted in a full table,
// the pair whose last failure is oldest among the unlocked ones is forgotten; only when every
// entry is locked is the lock that ends soonest forgotten. Unlocking a chosen pair early thus
// takes `capacity` locked pairs of the caller's own.
// Thread safety: every member may be called from any thread (one internal mutex, held only for
// the table update).
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "gateway/hostlib/mutex.h"

namespace korva::host {

class LoginLockTable {
  public:
    static constexpr size_t kDefaultCapacity = 4096;

    struct Status {
        int failures = 0;          // failed attempts since the last success or lock
        uint64_t lockedUntil = 0;  // monotonic ms; 0 when not locked
    };

    explicit LoginLockTable(size_t capacity = kDefaultCapacity)
        : m_capacity(capacity > 0 ? capacity : 1) {}

    // The pair's state at `now` (a lock that has run out is forgotten).
    Status status(const std::string& user, const std::string& address, uint64_t now);

    // Counts a failure. After `maxAttempts` failures the pair is locked until now + lockMs
    // (*lockedNow set); a lock of 0 ms ends at once. A locked pair stays as it is.
    Status recordFailure(const std::string& user, const std::string& address, uint64_t now,
                         int maxAttempts, uint64_t lockMs, bool* lockedNow);

    // Forgets the pair's failures unless it is locked; returns its state before.
    Status recordSuccess(const std::string& user, const std::string& address, uint64_t now);

    size_t size() const;

  private:
    struct Entry {
        Status status;
        uint64_t lastFailure = 0;
    };
    using Key = std::string;  // user, NUL, address (a user name never holds NUL)
    using Order = std::set<std::pair<uint64_t, Key>>;

    static Key keyOf(const std::string& user, const std::string& address);
    // The entry of a pair, its lock expired when over; end() when absent (mutex held).
    std::map<Key, Entry>::iterator find(const Key& key, uint64_t now) REQUIRES(m_mutex);
    void unlink(const Key& key, const Entry& entry) REQUIRES(m_mutex);
    void link(const Key& key, const Entry& entry) REQUIRES(m_mutex);
    void erase(std::map<Key, Entry>::iterator it) REQUIRES(m_mutex);
    void makeRoom(uint64_t now) REQUIRES(m_mutex);

    const size_t m_capacity;
    mutable Mutex m_mutex;
    std::map<Key, Entry> m_entries GUARDED_BY(m_mutex);
    Order m_unlocked GUARDED_BY(m_mutex);  // (last failure, key), oldest first
    Order m_locked GUARDED_BY(m_mutex);    // (locked until, key), soonest first
};

}  // namespace korva::host
