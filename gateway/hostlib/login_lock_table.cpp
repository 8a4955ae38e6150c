#include "gateway/hostlib/login_lock_table.h"

namespace korva::host {

LoginLockTable::Key LoginLockTable::keyOf(const std::string& user, const std::string& address) {
    Key key;
    key.reserve(user.size() + 1 + address.size());
    key.append(user).push_back('\0');
    key.append(address);
    return key;
}

void LoginLockTable::unlink(const Key& key, const Entry& entry) {
    if (entry.status.lockedUntil != 0) {
        m_locked.erase({entry.status.lockedUntil, key});
    } else {
        m_unlocked.erase({entry.lastFailure, key});
    }
}

void LoginLockTable::link(const Key& key, const Entry& entry) {
    if (entry.status.lockedUntil != 0) {
        m_locked.emplace(entry.status.lockedUntil, key);
    } else {
        m_unlocked.emplace(entry.lastFailure, key);
    }
}

void LoginLockTable::erase(std::map<Key, Entry>::iterator it) {
    unlink(it->first, it->second);
    m_entries.erase(it);
}

std::map<LoginLockTable::Key, LoginLockTable::Entry>::iterator LoginLockTable::find(const Key& key,
                                                                                    uint64_t now) {
    auto it = m_entries.find(key);
    if (it == m_entries.end()) return it;
    const uint64_t until = it->second.status.lockedUntil;
    if (until != 0 && now >= until) {
        erase(it);
        return m_entries.end();
    }
    return it;
}

void LoginLockTable::makeRoom(uint64_t now) {
    while (!m_locked.empty() && m_locked.begin()->first <= now) {
        erase(m_entries.find(m_locked.begin()->second));
    }
    while (m_entries.size() >= m_capacity && !m_entries.empty()) {
        const Order& victims = m_unlocked.empty() ? m_locked : m_unlocked;
        erase(m_entries.find(victims.begin()->second));
    }
}

LoginLockTable::Status LoginLockTable::status(const std::string& user, const std::string& address,
                                              uint64_t now) {
    const Key key = keyOf(user, address);
    MutexLock lock(m_mutex);
    auto it = find(key, now);
    return it == m_entries.end() ? Status{} : it->second.status;
}

LoginLockTable::Status LoginLockTable::recordFailure(const std::string& user,
                                                     const std::string& address, uint64_t now,
                                                     int maxAttempts, uint64_t lockMs,
                                                     bool* lockedNow) {
    *lockedNow = false;
    Key key = keyOf(user, address);
    MutexLock lock(m_mutex);
    auto it = find(key, now);
    if (it == m_entries.end()) {
        makeRoom(now);
        it = m_entries.emplace(std::move(key), Entry{}).first;
    } else {
        unlink(it->first, it->second);
    }
    Entry& entry = it->second;
    if (entry.status.lockedUntil == 0) {
        ++entry.status.failures;
        entry.lastFailure = now;
        if (maxAttempts > 0 && entry.status.failures >= maxAttempts) {
            if (lockMs == 0) {  // a lock of 0 s ends at once
                m_entries.erase(it);
                return Status{};
            }
            entry.status = Status{0, now + lockMs};
            *lockedNow = true;
        }
    }
    link(it->first, entry);
    return entry.status;
}

LoginLockTable::Status LoginLockTable::recordSuccess(const std::string& user,
                                                     const std::string& address, uint64_t now) {
    const Key key = keyOf(user, address);
    MutexLock lock(m_mutex);
    auto it = find(key, now);
    if (it == m_entries.end()) return Status{};
    const Status before = it->second.status;
    if (before.lockedUntil == 0) erase(it);
    return before;
}

size_t LoginLockTable::size() const {
    MutexLock lock(m_mutex);
    return m_entries.size();
}

}  // namespace korva::host
