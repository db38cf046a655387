#include "DeviceReach.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "UniqueFd.h"
#include "ZQGatewayDevices.h"

namespace gatewayd {
namespace {

// A non-blocking connection attempt under way; an invalid descriptor when none could start.
gwio::UniqueFd startConnect(const std::string& address) {
    ZQGateway::tagDeviceEndpoint endpoint;
    if (!ZQ_DeviceMgr_ParseDeviceAddress(address, ZQGateway::kTelmiDefaultPort, endpoint)) {
        return gwio::UniqueFd();
    }
    sockaddr_storage peer {};
    socklen_t length = 0;
    auto* v4 = reinterpret_cast<sockaddr_in*>(&peer);
    auto* v6 = reinterpret_cast<sockaddr_in6*>(&peer);
    if (::inet_pton(AF_INET, endpoint.host.c_str(), &v4->sin_addr) == 1) {
        v4->sin_family = AF_INET;
        v4->sin_port = htons(endpoint.port);
        length = sizeof(*v4);
    } else if (::inet_pton(AF_INET6, endpoint.host.c_str(), &v6->sin6_addr) == 1) {
        v6->sin6_family = AF_INET6;
        v6->sin6_port = htons(endpoint.port);
        length = sizeof(*v6);
    } else {
        return gwio::UniqueFd();
    }
    gwio::UniqueFd fd(::socket(peer.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (fd.get() < 0 ||
        (::connect(fd.get(), reinterpret_cast<sockaddr*>(&peer), length) != 0 && errno != EINPROGRESS)) {
        return gwio::UniqueFd();
    }
    return fd;
}

bool connected(int fd) {
    int error = 0;
    socklen_t length = sizeof(error);
    return ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error == 0;
}

}  // namespace

std::vector<Reach> telmiReach(const std::vector<std::string>& telmiAddresses, int timeoutMs) {
    std::vector<Reach> reach(telmiAddresses.size(), Reach::offline);
    std::vector<gwio::UniqueFd> attempts;
    std::vector<pollfd> waiting;
    std::vector<size_t> deviceOf;
    for (size_t i = 0; i < telmiAddresses.size(); ++i) {
        if (telmiAddresses[i].empty()) {
            reach[i] = Reach::noAddress;
            continue;
        }
        gwio::UniqueFd fd = startConnect(telmiAddresses[i]);
        if (fd.get() >= 0) {
            waiting.push_back({fd.get(), POLLOUT, 0});
            deviceOf.push_back(i);
            attempts.push_back(std::move(fd));
        }
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    size_t open = waiting.size();
    while (open > 0) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || ::poll(waiting.data(), waiting.size(), static_cast<int>(left.count())) <= 0) {
            break;
        }
        for (size_t k = 0; k < waiting.size(); ++k) {
            if (waiting[k].fd >= 0 && waiting[k].revents != 0) {
                reach[deviceOf[k]] = connected(waiting[k].fd) ? Reach::online : Reach::offline;
                waiting[k].fd = -1;  // poll skips it from now on
                --open;
            }
        }
    }
    return reach;
}

}  // namespace gatewayd
