// CSingleton<T>: one lazily created instance per loaded plug-in, never destroyed while the
// library is loaded. Creation is checked before and after taking the creation mutex, so later
// calls are lock-free. Thread-safe.
#pragma once

#include <atomic>
#include <mutex>

namespace QXKORVAProtocol {

class CNoncopyable {
  protected:
    CNoncopyable() = default;
    ~CNoncopyable() = default;

  public:
    CNoncopyable(const CNoncopyable&) = delete;
    CNoncopyable& operator=(const CNoncopyable&) = delete;
};

template <typename T>
class CSingleton : private CNoncopyable {
  public:
    // The instance, created on first call. A failure to lock the creation mutex throws
    // std::system_error; a failed allocation throws std::bad_alloc.
    static T* getInstance() {
        T* instance = s_instance.load(std::memory_order_acquire);
        if (instance != nullptr) return instance;
        std::lock_guard<std::mutex> lock(s_mutex);
        instance = s_instance.load(std::memory_order_relaxed);
        if (instance == nullptr) {
            instance = new T();
            s_instance.store(instance, std::memory_order_release);
        }
        return instance;
    }

  protected:
    CSingleton() = default;
    ~CSingleton() = default;

  private:
    static inline std::atomic<T*> s_instance{nullptr};
    static inline std::mutex s_mutex;
};

}  // namespace QXKORVAProtocol
