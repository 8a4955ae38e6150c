#include "gateway/hostlib/nonce_counts.h"

#include <algorithm>

namespace korva::host {

void NonceCounts::purge(uint64_t now, uint64_t lifetimeMs) {
    while (!m_ages.empty() && now > m_ages.begin()->first &&
           now - m_ages.begin()->first > lifetimeMs) {
        m_nonces.erase(m_ages.begin()->second);
        m_ages.erase(m_ages.begin());
    }
}

NonceCounts::Use NonceCounts::use(const std::string& nonce, uint64_t issued, uint32_t nc,
                                  uint64_t now, uint64_t lifetimeMs) {
    MutexLock lock(m_mutex);
    purge(now, lifetimeMs);
    auto it = m_nonces.find(nonce);
    if (it != m_nonces.end()) {
        if (nc <= it->second.highestNc) return Use::kReplayed;
        it->second.highestNc = nc;
        return Use::kAccepted;
    }
    if (m_evicted && issued <= m_evictedUpTo) return Use::kUnknownCount;
    if (m_nonces.size() >= m_capacity) {
        auto oldest = m_ages.begin();
        m_evicted = true;
        m_evictedUpTo = std::max(m_evictedUpTo, oldest->first);
        m_nonces.erase(oldest->second);
        m_ages.erase(oldest);
        if (issued <= m_evictedUpTo) return Use::kUnknownCount;
    }
    m_nonces.emplace(nonce, Entry{nc, issued});
    m_ages.emplace(issued, nonce);
    return Use::kAccepted;
}

}  // namespace korva::host
