// One epoll loop that serves every socket of a program on one thread (zqmediad's relays and
// commands, zqdevsim's RTSP sources). Timers are descriptors too (timerfd), watched like sockets.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_set>
#include <vector>

#include "UniqueFd.h"

namespace gwio {

class Watch;

class EventLoop {
public:
    // reportError words a failure of epoll itself in the program's log.
    using ErrorReport = std::function<void(const std::string& what)>;

    explicit EventLoop(ErrorReport reportError);
    bool valid() const { return epoll_.valid(); }

    // Dispatches events until stop(); false when epoll itself fails.
    bool run();
    void stop() { running_ = false; }
    // Runs task after the current batch of events, when no callback of an object it destroys
    // can still be on the stack.
    void post(std::function<void()> task) { posted_.push_back(std::move(task)); }

private:
    friend class Watch;
    bool control(int op, int fd, uint32_t events, Watch* watch);
    void forget(const Watch* watch) { forgotten_.insert(watch); }

    UniqueFd epoll_;
    ErrorReport reportError_;
    bool running_ = false;
    std::vector<std::function<void()>> posted_;
    // Watches unregistered during the current batch: their already fetched events are dropped.
    std::unordered_set<const Watch*> forgotten_;
};

// The registration of one descriptor (not owned) with the loop. Declare it after the UniqueFd
// it watches, so that it is unregistered before the descriptor is closed.
class Watch {
public:
    using Handler = std::function<void(uint32_t events)>;

    Watch(EventLoop& loop, int fd, Handler handler) : loop_(loop), fd_(fd), handler_(std::move(handler)) {}
    ~Watch() { stop(); }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    // The events of interest. With none, the descriptor leaves the loop entirely, so that a
    // hang-up or error nobody is ready to handle cannot wake the loop over and over.
    bool setEvents(uint32_t events);
    void stop() { setEvents(0); }
    uint32_t events() const { return events_; }

private:
    friend class EventLoop;
    EventLoop& loop_;
    const int fd_;
    Handler handler_;
    uint32_t events_ = 0;
};

}  // namespace gwio
