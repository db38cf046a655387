#include "EventLoop.h"

#include <sys/epoll.h>

#include <cerrno>
#include <cstring>

namespace gwio {

EventLoop::EventLoop(ErrorReport reportError)
    : epoll_(::epoll_create1(EPOLL_CLOEXEC)), reportError_(std::move(reportError)) {}

bool EventLoop::control(int op, int fd, uint32_t events, Watch* watch) {
    epoll_event event {};
    event.events = events;
    event.data.ptr = watch;
    return ::epoll_ctl(epoll_.get(), op, fd, &event) == 0;
}

bool EventLoop::run() {
    constexpr int kBatch = 256;
    epoll_event events[kBatch];
    running_ = true;
    while (running_) {
        const int count = ::epoll_wait(epoll_.get(), events, kBatch, -1);
        if (count < 0 && errno != EINTR) {
            reportError_(std::string("epoll_wait failed: ") + std::strerror(errno));
            return false;
        }
        for (int i = 0; i < count; ++i) {
            auto* watch = static_cast<Watch*>(events[i].data.ptr);
            if (forgotten_.count(watch) == 0) {
                watch->handler_(events[i].events);
            }
        }
        forgotten_.clear();
        // A posted task may post again; those run after the next batch.
        std::vector<std::function<void()>> tasks;
        tasks.swap(posted_);
        for (auto& task : tasks) {
            task();
        }
    }
    return true;
}

bool Watch::setEvents(uint32_t events) {
    if (events == events_) {
        return true;
    }
    bool ok = true;
    if (events == 0) {
        ok = loop_.control(EPOLL_CTL_DEL, fd_, 0, this);
        loop_.forget(this);
    } else {
        ok = loop_.control(events_ == 0 ? EPOLL_CTL_ADD : EPOLL_CTL_MOD, fd_, events, this);
    }
    if (!ok) {
        const int error = errno;
        loop_.reportError_("epoll_ctl on descriptor " + std::to_string(fd_) + " failed: " + std::strerror(error));
        if (events != 0 && events_ != 0) {
            // A failed change leaves nothing half registered.
            loop_.control(EPOLL_CTL_DEL, fd_, 0, this);
            loop_.forget(this);
        }
        events_ = 0;
        errno = error;
        return false;
    }
    events_ = events;
    return true;
}

}  // namespace gwio
