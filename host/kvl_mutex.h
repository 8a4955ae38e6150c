// Runtime mutexes and the scoped guard.
//
// kvl::kvl_mutex (also spelled KVL_Mutex) is a plain, non-recursive mutex. Copy assignment copies
// the members of the other object as they are; assign only an unlocked mutex to an unlocked one.
// kvl::kvl_recursive_mutex may be locked again by the thread that holds it.
// KVL_Guard locks a KVL_Mutex for its lifetime (or until Release()).
// Thread safety: Lock/Unlock may be called from any thread; a guard belongs to one thread.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstring>

#include "host/host_api.h"

namespace kvl {

class QX_HOST_EXPORTED_CLASS kvl_mutex {
  public:
    kvl_mutex();
    ~kvl_mutex();
    kvl_mutex(const kvl_mutex&) = delete;
    kvl_mutex& operator=(const kvl_mutex& other) {
        m_mutex = other.m_mutex;
        return *this;
    }

    // Both return 0 on success, an errno value otherwise.
    int Lock();
    int Unlock();

  private:
    pthread_mutex_t m_mutex;
};

class QX_HOST_EXPORTED_CLASS kvl_recursive_mutex {
  public:
    kvl_recursive_mutex();
    kvl_recursive_mutex(const kvl_recursive_mutex& other) : m_mutex(other.m_mutex) {}
    kvl_recursive_mutex& operator=(const kvl_recursive_mutex& other) {
        m_mutex = other.m_mutex;
        return *this;
    }
    virtual ~kvl_recursive_mutex() {}

    int Lock();
    int Unlock();

  private:
    pthread_mutex_t m_mutex;
};

// Stand-in for a string helper class of the runtime; assignment leaves the object unchanged.
class QX_HOST_EXPORTED_CLASS kvl_string {
  public:
    kvl_string() = default;
    kvl_string(const kvl_string&) = default;
    kvl_string& operator=(const kvl_string&) { return *this; }
    // NOLINTNEXTLINE(performance-noexcept-move-constructor): the runtime's own shape
    kvl_string& operator=(kvl_string&&) { return *this; }
};

}  // namespace kvl

typedef kvl::kvl_mutex KVL_Mutex;

class QX_HOST_EXPORTED_CLASS KVL_Guard {
  public:
    // Stores the pointer and locks the mutex (a null pointer is stored and nothing is locked).
    explicit KVL_Guard(KVL_Mutex* mutex) : m_mutex(mutex) {
        if (m_mutex != nullptr) m_mutex->Lock();
    }
    ~KVL_Guard() { Release(); }
    KVL_Guard(const KVL_Guard&) = delete;
    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): the runtime's own shape
    KVL_Guard& operator=(const KVL_Guard& other) {
        m_mutex = other.m_mutex;
        return *this;
    }

    // Unlocks the held mutex, if any, and forgets it.
    void Release() {
        if (m_mutex != nullptr) {
            m_mutex->Unlock();
            m_mutex = nullptr;
        }
    }

    // Zero-fills the object (the mutex is forgotten, not unlocked).
    // NOLINTNEXTLINE(bugprone-reserved-identifier): the runtime's own name
    void __autoclassinit2(std::size_t size) { std::memset(static_cast<void*>(this), 0, size); }

  private:
    KVL_Mutex* m_mutex;
};
