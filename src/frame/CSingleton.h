#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include "frame/CNoncopyable.h"

// One instance of T, created on first use with double-checked locking. s_instance_ owns it and
// is destroyed when the library is unloaded; published_ carries the pointer to the lock-free
// first check as an acquire load, so that check is not a data race.
template <class T>
class CSingleton : public CNoncopyable {
public:
    static T* Instance() {
        if (T* existing = published_.load(std::memory_order_acquire)) {
            return existing;
        }
        std::unique_lock<std::mutex> lock(mutex_);
        if (!s_instance_) {
            s_instance_ = std::unique_ptr<T>(new T());
            published_.store(s_instance_.get(), std::memory_order_release);
        }
        return s_instance_.get();
    }

private:
    static std::unique_ptr<T> s_instance_;
    static std::mutex mutex_;
    static std::atomic<T*> published_;
};

template <class T>
std::unique_ptr<T> CSingleton<T>::s_instance_;
template <class T>
std::mutex CSingleton<T>::mutex_;
template <class T>
std::atomic<T*> CSingleton<T>::published_{nullptr};
