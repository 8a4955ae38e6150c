// Runtime mutexes on pthreads.
#include "host/kvl_mutex.h"

namespace kvl {

kvl_mutex::kvl_mutex() {
    // Error-checking: still non-recursive, but relocking by the owner or unlocking a mutex the
    // caller does not hold reports an errno value instead of deadlocking or corrupting state.
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_ERRORCHECK);
    pthread_mutex_init(&m_mutex, &attr);
    pthread_mutexattr_destroy(&attr);
}

kvl_mutex::~kvl_mutex() {
    pthread_mutex_destroy(&m_mutex);
}

int kvl_mutex::Lock() {
    return pthread_mutex_lock(&m_mutex);
}

int kvl_mutex::Unlock() {
    return pthread_mutex_unlock(&m_mutex);
}

kvl_recursive_mutex::kvl_recursive_mutex() {
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&m_mutex, &attr);
    pthread_mutexattr_destroy(&attr);
}

int kvl_recursive_mutex::Lock() {
    return pthread_mutex_lock(&m_mutex);
}

int kvl_recursive_mutex::Unlock() {
    return pthread_mutex_unlock(&m_mutex);
}

}  // namespace kvl
