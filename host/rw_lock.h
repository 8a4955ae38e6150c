// Reader/writer lock of the host library. Not recursive; a writer excludes readers and writers.
#pragma once

#include <shared_mutex>

// Thread-safety attributes for clang's -Wthread-safety (nothing for other compilers): the lock is
// a capability, and members guarded by it can be declared QX_THREAD_ANNOTATION(guarded_by(lock)).
#if defined(__clang__)
#define QX_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define QX_THREAD_ANNOTATION(x)
#endif

namespace QXBase {

class QX_THREAD_ANNOTATION(capability("rwlock")) CRWLock {
  public:
    CRWLock() = default;
    CRWLock(const CRWLock&) = delete;
    CRWLock& operator=(const CRWLock&) = delete;

    void ReadLock() QX_THREAD_ANNOTATION(acquire_shared_capability()) { m_lock.lock_shared(); }
    void ReadUnlock() QX_THREAD_ANNOTATION(release_shared_capability()) { m_lock.unlock_shared(); }
    void WriteLock() QX_THREAD_ANNOTATION(acquire_capability()) { m_lock.lock(); }
    void WriteUnlock() QX_THREAD_ANNOTATION(release_capability()) { m_lock.unlock(); }

  private:
    std::shared_mutex m_lock;
};

// Holds the read side of a CRWLock for its lifetime.
class QX_THREAD_ANNOTATION(scoped_lockable) CReadLockGuard {
  public:
    explicit CReadLockGuard(CRWLock& lock) QX_THREAD_ANNOTATION(acquire_shared_capability(lock))
        : m_lock(lock) {
        m_lock.ReadLock();
    }
    ~CReadLockGuard() QX_THREAD_ANNOTATION(release_capability()) { m_lock.ReadUnlock(); }
    CReadLockGuard(const CReadLockGuard&) = delete;
    CReadLockGuard& operator=(const CReadLockGuard&) = delete;

  private:
    CRWLock& m_lock;
};

// Holds the write side of a CRWLock for its lifetime.
class QX_THREAD_ANNOTATION(scoped_lockable) CWriteLockGuard {
  public:
    explicit CWriteLockGuard(CRWLock& lock) QX_THREAD_ANNOTATION(acquire_capability(lock))
        : m_lock(lock) {
        m_lock.WriteLock();
    }
    ~CWriteLockGuard() QX_THREAD_ANNOTATION(release_capability()) { m_lock.WriteUnlock(); }
    CWriteLockGuard(const CWriteLockGuard&) = delete;
    CWriteLockGuard& operator=(const CWriteLockGuard&) = delete;

  private:
    CRWLock& m_lock;
};

}  // namespace QXBase
