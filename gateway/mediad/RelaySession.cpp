#include "RelaySession.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "MediadLog.h"

namespace mediad {

namespace {

// SYN retries for the device connection: about 15 seconds before an unreachable device gives
// up, instead of the system's two minutes, and without a timer of our own.
constexpr int kConnectSynRetries = 3;

int socketError(int fd) {
    int error = 0;
    socklen_t length = sizeof(error);
    return ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 ? error : errno;
}

void setNoDelay(int fd) {
    // RTSP answers are small and waited for; Nagle would hold them back.
    const int on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

}  // namespace

RelaySession::RelaySession(EventLoop& loop, UniqueFd client, UniqueFd deviceSocket, std::string deviceIndex,
                           std::function<void()> onFinished)
    : deviceIndex_(std::move(deviceIndex)),
      onFinished_(std::move(onFinished)),
      client_(loop, std::move(client), [this](uint32_t events) { onEvents(client_, events); }),
      device_(loop, std::move(deviceSocket), [this](uint32_t events) { onEvents(device_, events); }) {}

bool RelaySession::connect(const SocketAddress& device) {
    setNoDelay(client_.fd.get());
    setNoDelay(device_.fd.get());
    ::setsockopt(device_.fd.get(), IPPROTO_TCP, TCP_SYNCNT, &kConnectSynRetries, sizeof(kConnectSynRetries));
    const auto* address = reinterpret_cast<const sockaddr*>(&device.storage);
    if (::connect(device_.fd.get(), address, device.length) != 0 && errno != EINPROGRESS) {
        finish("cannot connect to the device", errno);
        return false;
    }
    // Completion (or failure) of the connect shows as writability; the client is read
    // meanwhile, into its buffer only.
    updateInterest();
    return !finished_;
}

void RelaySession::onEvents(Side& side, uint32_t events) {
    if (finished_) {
        return;
    }
    if (&side == &device_ && connecting_ && !completeConnect()) {
        return;
    }
    if ((events & EPOLLERR) != 0) {
        finish(&side == &client_ ? "client socket error" : "device socket error", socketError(side.fd.get()));
        return;
    }
    if ((events & (EPOLLIN | EPOLLHUP)) != 0 && canRead(side) && !read(side)) {
        return;
    }
    if (!forward(client_, device_) || !forward(device_, client_)) {
        return;
    }
    if (client_.writeShut && device_.writeShut) {
        finish("both sides closed", 0);
        return;
    }
    updateInterest();
}

void RelaySession::enforceLimits(Clock::time_point now, Clock::duration firstRequest, Clock::duration idle) {
    if (client_.bytesIn == 0 && now - acceptedAt_ >= firstRequest) {
        finish("the client sent no request in time", 0);
    } else if (now - lastActivity_ >= idle) {
        finish("idle for too long", 0);
    }
}

bool RelaySession::completeConnect() {
    const int error = socketError(device_.fd.get());
    if (error != 0) {
        finish("cannot connect to the device", error);
        return false;
    }
    connecting_ = false;
    return true;
}

bool RelaySession::canRead(const Side& side) const {
    return !side.readClosed && !side.inbound.full() && !(connecting_ && &side == &device_);
}

bool RelaySession::read(Side& side) {
    const size_t before = side.inbound.size();
    switch (side.inbound.fillFrom(side.fd.get())) {
        case IoResult::progress:
            side.bytesIn += side.inbound.size() - before;
            lastActivity_ = Clock::now();
            return true;
        case IoResult::closed: side.readClosed = true; return true;
        case IoResult::wouldBlock: return true;
        case IoResult::failed: break;
    }
    finish(&side == &client_ ? "client read failed" : "device read failed", errno);
    return false;
}

// Writes what from holds to the other side, and passes on from's end of stream once all of
// its bytes are through, so each direction closes on its own (half-close).
bool RelaySession::forward(Side& from, Side& to) {
    if (connecting_) {
        return true;
    }
    if (from.inbound.drainTo(to.fd.get()) == IoResult::failed) {
        finish(&to == &client_ ? "client write failed" : "device write failed", errno);
        return false;
    }
    if (from.readClosed && from.inbound.empty() && !to.writeShut) {
        ::shutdown(to.fd.get(), SHUT_WR);
        to.writeShut = true;
    }
    return true;
}

void RelaySession::updateInterest() {
    for (Side* side : {&client_, &device_}) {
        const Side& other = side == &client_ ? device_ : client_;
        uint32_t events = canRead(*side) ? uint32_t {EPOLLIN} : 0;
        const bool waitingToWrite = !connecting_ && !other.inbound.empty();
        const bool waitingForConnect = connecting_ && side == &device_;
        if (waitingToWrite || waitingForConnect) {
            events |= EPOLLOUT;
        }
        if (!side->watch.setEvents(events) && events != 0) {
            finish("cannot watch a socket", errno);
            return;
        }
    }
}

void RelaySession::finish(const char* reason, int error) {
    if (finished_) {
        return;
    }
    finished_ = true;
    for (Side* side : {&client_, &device_}) {
        side->watch.stop();
        side->fd.reset();
    }
    // A reset is how many clients hang up; only other errors are worth a warning.
    const bool normalEnd = error == 0 || error == ECONNRESET || error == EPIPE;
    MEDIAD_LOG(normalEnd ? gwlog::kDetail : gwlog::kWarning,
               "relay for device %s ended: %s%s%s (client sent %llu bytes, device %llu)", deviceIndex_.c_str(), reason,
               error == 0 ? "" : ": ", error == 0 ? "" : std::strerror(error),
               static_cast<unsigned long long>(client_.bytesIn), static_cast<unsigned long long>(device_.bytesIn));
    onFinished_();
}

}  // namespace mediad
