#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ZQDeviceMgr.h"

namespace zqgw {

// Delivers change notifications on a thread of its own, in the order they were posted, so that
// no callback ever runs inside a caller's store call.
class ChangeNotifier {
public:
    ~ChangeNotifier();

    // Registers the callback, or replaces the context of one already registered.
    void attach(ZQDeviceMgr::DevChangeCallback callback, void* context);
    // False when the callback was not registered. When it returns, the callback is not running
    // (unless detach is called from the callback itself) and will not be called again.
    bool detach(ZQDeviceMgr::DevChangeCallback callback);
    void post(ZQDeviceMgr::tagNotifyType type, const std::string& deviceIndex);

private:
    void run();

    std::mutex mutex_;
    std::condition_variable wake_, idle_;
    std::vector<std::pair<ZQDeviceMgr::DevChangeCallback, void*>> subscribers_;
    std::deque<std::pair<ZQDeviceMgr::tagNotifyType, std::string>> queue_;
    bool delivering_ = false;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace zqgw
