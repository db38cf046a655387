#include "RtspListeners.h"

#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "AcceptPending.h"
#include "MediadLog.h"

namespace mediad {

namespace {

// A listening socket on port on every address: IPv6 with IPv4 mapped in when the system has
// IPv6, IPv4 alone otherwise. errno tells why it failed.
UniqueFd listenOnAllAddresses(uint16_t port) {
    UniqueFd fd(::socket(AF_INET6, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    sockaddr_storage storage {};
    socklen_t length = 0;
    if (fd.valid()) {
        const int off = 0;
        ::setsockopt(fd.get(), IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof(off));
        auto* any6 = reinterpret_cast<sockaddr_in6*>(&storage);
        any6->sin6_family = AF_INET6;
        any6->sin6_addr = in6addr_any;
        any6->sin6_port = htons(port);
        length = sizeof(sockaddr_in6);
    } else if (errno == EAFNOSUPPORT) {
        fd.reset(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        auto* any4 = reinterpret_cast<sockaddr_in*>(&storage);
        any4->sin_family = AF_INET;
        any4->sin_addr.s_addr = htonl(INADDR_ANY);
        any4->sin_port = htons(port);
        length = sizeof(sockaddr_in);
    }
    if (!fd.valid()) {
        return fd;
    }
    // Lets the port be bound again while relayed connections of an earlier listener linger in
    // TIME_WAIT; it never lets two sockets listen on one port.
    const int on = 1;
    ::setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    if (::bind(fd.get(), reinterpret_cast<const sockaddr*>(&storage), length) != 0 ||
        ::listen(fd.get(), SOMAXCONN) != 0) {
        const int error = errno;
        fd.reset();
        errno = error;
    }
    return fd;
}

}  // namespace

RtspListeners::RtspListeners(EventLoop& loop, AcceptHandler onAccept) : loop_(loop), onAccept_(std::move(onAccept)) {}

ListenOutcome RtspListeners::open(const std::string& deviceIndex, uint16_t port, std::string& error) {
    if (port == 0) {
        error = "RTSP port 0 cannot be listened on";
        return ListenOutcome::failed;
    }
    Entry& entry = entries_[deviceIndex];
    if (entry.port == port && entry.fd.valid()) {
        return ListenOutcome::listening;
    }
    if (entry.fd.valid()) {
        MEDIAD_LOG(gwlog::kStartEnd, "device %s moves from RTSP port %u to %u", deviceIndex.c_str(), entry.port, port);
    }
    entry.watch.reset();
    entry.fd.reset();
    entry.port = port;
    if (portUsedByOtherDevice(deviceIndex, port)) {
        error = "RTSP port " + std::to_string(port) + " is used by another device";
        MEDIAD_LOG(gwlog::kWarning, "device %s cannot listen: %s", deviceIndex.c_str(), error.c_str());
        return ListenOutcome::portTaken;
    }
    return bindEntry(entry, deviceIndex, error);
}

ListenOutcome RtspListeners::bindEntry(Entry& entry, const std::string& deviceIndex, std::string& error) {
    UniqueFd fd = listenOnAllAddresses(entry.port);
    if (!fd.valid()) {
        const int cause = errno;
        error = cause == EADDRINUSE ? "RTSP port " + std::to_string(entry.port) + " is in use by another program"
                                    : "RTSP port " + std::to_string(entry.port) + ": " + std::strerror(cause);
        MEDIAD_LOG(gwlog::kWarning, "device %s cannot listen: %s", deviceIndex.c_str(), error.c_str());
        return cause == EADDRINUSE ? ListenOutcome::portTaken : ListenOutcome::failed;
    }
    const int listenFd = fd.get();
    auto watch = std::make_unique<Watch>(
        loop_, listenFd, [this, deviceIndex, listenFd](uint32_t) { acceptClients(deviceIndex, listenFd); });
    if (!watch->setEvents(EPOLLIN)) {
        error = std::string("cannot watch the listener: ") + std::strerror(errno);
        return ListenOutcome::failed;
    }
    entry.fd = std::move(fd);
    entry.watch = std::move(watch);
    MEDIAD_LOG(gwlog::kStartEnd, "device %s listens on RTSP port %u", deviceIndex.c_str(), entry.port);
    return ListenOutcome::listening;
}

void RtspListeners::close(const std::string& deviceIndex) {
    auto found = entries_.find(deviceIndex);
    if (found == entries_.end()) {
        return;
    }
    MEDIAD_LOG(gwlog::kStartEnd, "device %s stops listening on RTSP port %u", deviceIndex.c_str(), found->second.port);
    entries_.erase(found);
}

std::vector<std::string> RtspListeners::devices() const {
    std::vector<std::string> indexes;
    for (const auto& entry : entries_) {
        indexes.push_back(entry.first);
    }
    return indexes;
}

uint16_t RtspListeners::port(const std::string& deviceIndex) const {
    auto found = entries_.find(deviceIndex);
    return found == entries_.end() ? 0 : found->second.port;
}

bool RtspListeners::listening(const std::string& deviceIndex) const {
    auto found = entries_.find(deviceIndex);
    if (found == entries_.end() || !found->second.fd.valid()) {
        return false;
    }
    int accepting = 0;
    socklen_t length = sizeof(accepting);
    return ::getsockopt(found->second.fd.get(), SOL_SOCKET, SO_ACCEPTCONN, &accepting, &length) == 0 && accepting != 0;
}

bool RtspListeners::portUsedByOtherDevice(const std::string& deviceIndex, uint16_t port) const {
    for (const auto& [other, entry] : entries_) {
        if (other != deviceIndex && entry.port == port && entry.fd.valid()) {
            return true;
        }
    }
    return false;
}

void RtspListeners::acceptClients(const std::string& deviceIndex, int listenFd) {
    const std::string what = "the RTSP port of device " + deviceIndex;
    const auto relay = [this, &deviceIndex](UniqueFd client) { onAccept_(std::move(client), deviceIndex); };
    acceptPending(listenFd, kAcceptsPerWakeup, relay, what.c_str());
}

}  // namespace mediad
