#include <mutex>

#include "kmt.h"

struct KMT_Mutex::Impl {
    bool recursive;
    std::mutex plain;
    std::recursive_mutex reentrant;
};

KMT_Mutex::KMT_Mutex(int flag) : impl_(new Impl) { impl_->recursive = (flag == 1); }

KMT_Mutex::~KMT_Mutex() { delete impl_; }

void KMT_Mutex::Lock() {
    if (impl_->recursive) {
        impl_->reentrant.lock();
    } else {
        impl_->plain.lock();
    }
}

void KMT_Mutex::Unlock() {
    if (impl_->recursive) {
        impl_->reentrant.unlock();
    } else {
        impl_->plain.unlock();
    }
}

KMT_Guard::KMT_Guard(KMT_Mutex* mutex) : mutex_(mutex) {
    if (mutex_ != nullptr) {
        mutex_->Lock();
    }
}

KMT_Guard::~KMT_Guard() { Release(); }

void KMT_Guard::Release() {
    if (mutex_ != nullptr) {
        mutex_->Unlock();
        mutex_ = nullptr;
    }
}
