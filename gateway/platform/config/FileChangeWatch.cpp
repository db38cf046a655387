#include "config/FileChangeWatch.h"

#include <pthread.h>
#include <sys/inotify.h>

#include <atomic>
#include <cerrno>

namespace zqgw {
namespace {

// Every way a file can be replaced, rewritten or removed, whether by the gateway's atomic rename
// or by an editor; and the folder itself going away.
constexpr uint32_t kWatched = IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE | IN_CREATE | IN_DELETE | IN_MOVED_FROM |
                              IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF;
// Events were lost, or the folder is no longer the one watched.
constexpr uint32_t kWatchLost = IN_Q_OVERFLOW | IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF;

// A child of fork shares its parent's inotify queue, and each would take events the other needs:
// a watch made before a fork is made anew after it.
std::atomic<unsigned> forks {0};

void noteFork() { forks.fetch_add(1, std::memory_order_relaxed); }

}  // namespace

FileChangeWatch::FileChangeWatch(const std::string& path) {
    static const int atFork = ::pthread_atfork(nullptr, nullptr, noteFork);
    (void)atFork;
    const size_t slash = path.rfind('/');
    folder_ = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    name_ = slash == std::string::npos ? path : path.substr(slash + 1);
}

bool FileChangeWatch::changed() {
    const unsigned forksNow = forks.load(std::memory_order_relaxed);
    if (forksSeen_ != forksNow) {
        forksSeen_ = forksNow;
        inotify_.reset();
    }
    if (!inotify_.valid()) {
        inotify_.reset(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
        if (inotify_.valid() && ::inotify_add_watch(inotify_.get(), folder_.c_str(), kWatched) < 0) {
            inotify_.reset();
        }
        return true;
    }
    bool changed = false;
    alignas(inotify_event) char events[4096];
    for (;;) {
        const ssize_t n = ::read(inotify_.get(), events, sizeof(events));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0 && errno == EAGAIN) {
            return changed;
        }
        if (n <= 0) {
            inotify_.reset();
            return true;
        }
        for (ssize_t at = 0; at < n;) {
            const auto* event = reinterpret_cast<const inotify_event*>(events + at);
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            if ((event->mask & kWatchLost) != 0) {
                inotify_.reset();
                return true;
            }
            changed = changed || (event->len > 0 && name_ == event->name);
        }
    }
}

}  // namespace zqgw
