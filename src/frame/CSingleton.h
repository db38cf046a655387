#pragma once

#include <atomic>
#include <mutex>
#include <new>

#include "frame/CNoncopyable.h"

// One instance of T, created on first use with double-checked locking. The instance lives in the
// library's own static storage and is never destroyed: a host thread, or the device store's
// notification thread, may still be inside a call while the process exits or the library is
// closed, and must find the object whole. The library is linked not to be unmapped by dlclose
// (-z nodelete), so that storage and the code stay valid for as long as the process runs.
// published_ carries the pointer to the lock-free first check as an acquire load.
template <class T>
class CSingleton : public CNoncopyable {
public:
    static T* Instance() {
        if (T* existing = published_.load(std::memory_order_acquire)) {
            return existing;
        }
        std::unique_lock<std::mutex> lock(mutex_);
        if (T* existing = published_.load(std::memory_order_relaxed)) {
            return existing;
        }
        // Inside the member, where T is complete; zero-initialised, so never destroyed either.
        alignas(T) static unsigned char storage[sizeof(T)];
        T* created = new (storage) T();
        published_.store(created, std::memory_order_release);
        return created;
    }

private:
    // Constant-initialised and trivially destroyed, so usable at any time too.
    static std::mutex mutex_;
    static std::atomic<T*> published_;
};

template <class T>
std::mutex CSingleton<T>::mutex_;
template <class T>
std::atomic<T*> CSingleton<T>::published_ {nullptr};
