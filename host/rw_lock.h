// Reader/writer lock of the host library. Not recursive; a writer excludes readers and writers.
#pragma once

#include <shared_mutex>

namespace QXBase {

class CRWLock {
public:
    CRWLock() = default;
    CRWLock(const CRWLock&) = delete;
    CRWLock& operator=(const CRWLock&) = delete;

    void ReadLock() { m_lock.lock_shared(); }
    void ReadUnlock() { m_lock.unlock_shared(); }
    void WriteLock() { m_lock.lock(); }
    void WriteUnlock() { m_lock.unlock(); }

private:
    std::shared_mutex m_lock;
};

// Holds the read side of a CRWLock for its lifetime.
class CReadLockGuard {
public:
    explicit CReadLockGuard(CRWLock& lock) : m_lock(lock) { m_lock.ReadLock(); }
    ~CReadLockGuard() { m_lock.ReadUnlock(); }
    CReadLockGuard(const CReadLockGuard&) = delete;
    CReadLockGuard& operator=(const CReadLockGuard&) = delete;

private:
    CRWLock& m_lock;
};

// Holds the write side of a CRWLock for its lifetime.
class CWriteLockGuard {
public:
    explicit CWriteLockGuard(CRWLock& lock) : m_lock(lock) { m_lock.WriteLock(); }
    ~CWriteLockGuard() { m_lock.WriteUnlock(); }
    CWriteLockGuard(const CWriteLockGuard&) = delete;
    CWriteLockGuard& operator=(const CWriteLockGuard&) = delete;

private:
    CRWLock& m_lock;
};

}  // namespace QXBase
