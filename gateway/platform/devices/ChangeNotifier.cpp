#include "devices/ChangeNotifier.h"

#include <algorithm>

namespace zqgw {

ChangeNotifier::~ChangeNotifier() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void ChangeNotifier::attach(ZQDeviceMgr::DevChangeCallback callback, void* context) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = std::find_if(subscribers_.begin(), subscribers_.end(),
                           [callback](const auto& s) { return s.first == callback; });
    if (it != subscribers_.end()) {
        it->second = context;
    } else {
        subscribers_.emplace_back(callback, context);
    }
}

bool ChangeNotifier::detach(ZQDeviceMgr::DevChangeCallback callback) {
    std::unique_lock<std::mutex> lock(mutex_);
    auto it = std::find_if(subscribers_.begin(), subscribers_.end(),
                           [callback](const auto& s) { return s.first == callback; });
    if (it == subscribers_.end()) {
        return false;
    }
    subscribers_.erase(it);
    if (std::this_thread::get_id() != thread_.get_id()) {
        idle_.wait(lock, [this] { return !delivering_; });
    }
    return true;
}

void ChangeNotifier::post(ZQDeviceMgr::tagNotifyType type, const std::string& deviceIndex) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        queue_.emplace_back(type, deviceIndex);
        if (!thread_.joinable()) {
            thread_ = std::thread(&ChangeNotifier::run, this);
        }
    }
    wake_.notify_one();
}

void ChangeNotifier::run() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
        if (stopping_) {
            return;
        }
        auto [type, deviceIndex] = queue_.front();
        queue_.pop_front();
        // Each callback runs unlocked; one detached meanwhile is not called any more.
        for (size_t i = 0; i < subscribers_.size(); ++i) {
            auto [callback, context] = subscribers_[i];
            delivering_ = true;
            lock.unlock();
            callback(type, const_cast<char*>(deviceIndex.c_str()), context);
            lock.lock();
            delivering_ = false;
            idle_.notify_all();
            auto still = std::find_if(subscribers_.begin(), subscribers_.end(),
                                      [callback = callback](const auto& s) { return s.first == callback; });
            i = still == subscribers_.end() ? i - 1 : static_cast<size_t>(still - subscribers_.begin());
        }
    }
}

}  // namespace zqgw
