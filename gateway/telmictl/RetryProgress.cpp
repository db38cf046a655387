#include "RetryProgress.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>

namespace telmictl {

RetryProgress::RetryProgress(std::string what) : what_(std::move(what)) {
    if (::isatty(STDERR_FILENO)) {
        thread_ = std::thread([this] { show(); });
    }
}

RetryProgress::~RetryProgress() {
    if (!thread_.joinable()) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        done_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

void RetryProgress::show() {
    static const char kSpinner[] = {'|', '/', '-', '\\'};
    std::unique_lock<std::mutex> lock(mutex_);
    const auto start = std::chrono::steady_clock::now();
    for (unsigned tick = 0; !done_; ++tick) {
        const auto seconds =
            std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start).count();
        std::fprintf(stderr, "\r%c %s (%lld s)", kSpinner[tick % 4], what_.c_str(), static_cast<long long>(seconds));
        std::fflush(stderr);
        wake_.wait_for(lock, std::chrono::milliseconds(250), [this] { return done_; });
    }
    // Erase the line so that the result is printed on a clean one.
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
}

}  // namespace telmictl
