// Mutex and MutexLock: std::mutex and a scoped lock that the thread-safety analysis of clang
// understands (libstdc++'s own types carry no annotations). Wait on a MutexLock with
// std::condition_variable_any, in a loop that tests the condition with the lock held:
//     MutexLock lock(m_mutex);
//     while (!ready) m_changed.wait(lock);
// Thread safety: as std::mutex; a MutexLock belongs to the thread that made it.
#pragma once

#include <mutex>

#include "gateway/hostlib/thread_annotations.h"

namespace korva {

class CAPABILITY("mutex") Mutex {
  public:
    void lock() ACQUIRE() { m_mutex.lock(); }
    void unlock() RELEASE() { m_mutex.unlock(); }

  private:
    std::mutex m_mutex;
};

// Holds the mutex from construction to destruction, except between unlock() and lock() (which
// condition_variable_any::wait calls).
class SCOPED_CAPABILITY MutexLock {
  public:
    explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.lock(); }
    ~MutexLock() RELEASE() {
        if (m_held) m_mutex.unlock();
    }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    void lock() ACQUIRE() {
        m_mutex.lock();
        m_held = true;
    }
    void unlock() RELEASE() {
        m_held = false;
        m_mutex.unlock();
    }

  private:
    Mutex& m_mutex;
    bool m_held = true;
};

}  // namespace korva
