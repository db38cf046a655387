#include "DelayingRelay.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

namespace gwtest {
namespace {

sockaddr_in loopback(unsigned short port) {
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

}  // namespace

DelayingRelay::DelayingRelay(unsigned short listenPort, unsigned short targetPort, int delayMs)
    : listenFd_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), targetPort_(targetPort), delayMs_(delayMs) {
    const sockaddr_in address = loopback(listenPort);
    int yes = 1;
    ::setsockopt(listenFd_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    if (::bind(listenFd_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
        ::listen(listenFd_, 4) == 0) {
        thread_ = std::thread([this] { run(); });
    }
}

DelayingRelay::~DelayingRelay() {
    stopping_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
    ::close(listenFd_);
}

void DelayingRelay::run() {
    while (!stopping_) {
        pollfd waiting {listenFd_, POLLIN, 0};
        if (::poll(&waiting, 1, 100) == 1) {
            const int client = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
            if (client >= 0) {
                relay(client);
                ::close(client);
            }
        }
    }
}

void DelayingRelay::relay(int client) {
    const int upstream = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in target = loopback(targetPort_);
    if (::connect(upstream, reinterpret_cast<const sockaddr*>(&target), sizeof(target)) != 0) {
        ::close(upstream);
        return;
    }
    pollfd ends[2] = {{client, POLLIN, 0}, {upstream, POLLIN, 0}};
    char buffer[16384];
    bool open = true;
    while (open && !stopping_) {
        if (::poll(ends, 2, 100) <= 0) {
            continue;
        }
        for (int i = 0; i < 2 && open; ++i) {
            if ((ends[i].revents & (POLLIN | POLLHUP | POLLERR)) == 0) {
                continue;
            }
            const ssize_t n = ::recv(ends[i].fd, buffer, sizeof(buffer), 0);
            open = n > 0;
            if (open && i == 1 && !delayed_ &&
                std::string(buffer, static_cast<size_t>(n)).find("WWW-Authenticate") != std::string::npos) {
                delayed_ = true;
                ::usleep(static_cast<useconds_t>(delayMs_) * 1000);
            }
            open = open && ::send(ends[1 - i].fd, buffer, static_cast<size_t>(n), MSG_NOSIGNAL) == n;
        }
    }
    ::close(upstream);
}

}  // namespace gwtest
