// Shows that telmictl is still waiting while the gateway brings a binding's listeners up again
// (nginx may take most of a minute): seconds counting up on stderr, only when stderr is a
// terminal, so that scripts and logs get no progress noise. The line is cleared when done.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace telmictl {

class RetryProgress {
public:
    explicit RetryProgress(std::string what);
    ~RetryProgress();
    RetryProgress(const RetryProgress&) = delete;
    RetryProgress& operator=(const RetryProgress&) = delete;

private:
    void show();

    std::string what_;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool done_ = false;
    std::thread thread_;
};

}  // namespace telmictl
