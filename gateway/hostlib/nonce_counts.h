// The highest nonce count seen per nonce, for one account: a request whose count is not above it
// is a replay. Each account has its own table, so one user's flood of nonces cannot push another
// user's counts out.
//
// Bounded: at most `capacity` nonces; counts of nonces older than the nonce lifetime are dropped.
// When a new nonce must be counted in a full table, the oldest is forgotten, and from then on a
// nonce issued no later than the forgotten one is answered "unknown count" (the caller asks for a
// fresh nonce with stale=TRUE) rather than trusted without its history.
// Thread safety: every member may be called from any thread (one internal mutex).
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>

#include "gateway/hostlib/mutex.h"

namespace korva::host {

class NonceCounts {
  public:
    static constexpr size_t kDefaultCapacity = 256;

    enum class Use { kAccepted, kReplayed, kUnknownCount };

    explicit NonceCounts(size_t capacity = kDefaultCapacity)
        : m_capacity(capacity > 0 ? capacity : 1) {}

    // Records count nc of a nonce issued at `issued` (monotonic ms), at `now`.
    Use use(const std::string& nonce, uint64_t issued, uint32_t nc, uint64_t now,
            uint64_t lifetimeMs);

  private:
    struct Entry {
        uint32_t highestNc = 0;
        uint64_t issued = 0;
    };
    void purge(uint64_t now, uint64_t lifetimeMs) REQUIRES(m_mutex);

    const size_t m_capacity;
    Mutex m_mutex;
    std::unordered_map<std::string, Entry> m_nonces GUARDED_BY(m_mutex);
    std::set<std::pair<uint64_t, std::string>> m_ages GUARDED_BY(m_mutex);  // (issued, nonce)
    bool m_evicted GUARDED_BY(m_mutex) = false;
    uint64_t m_evictedUpTo GUARDED_BY(m_mutex) = 0;
};

}  // namespace korva::host
