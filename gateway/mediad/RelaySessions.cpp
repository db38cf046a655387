#include "RelaySessions.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>

#include <cerrno>
#include <cstring>

#include "MediadLog.h"

namespace mediad {

namespace {

// The client's address; for IPv6 its /64, which one host or site can fill with addresses at will.
std::string clientKeyOf(int fd) {
    sockaddr_storage peer {};
    socklen_t length = sizeof(peer);
    if (::getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &length) != 0) {
        return "?";
    }
    char text[INET6_ADDRSTRLEN] = {};
    if (peer.ss_family == AF_INET) {
        ::inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(&peer)->sin_addr, text, sizeof(text));
        return text;
    }
    in6_addr address = reinterpret_cast<const sockaddr_in6*>(&peer)->sin6_addr;
    if (IN6_IS_ADDR_V4MAPPED(&address)) {
        ::inet_ntop(AF_INET, &address.s6_addr[12], text, sizeof(text));
        return text;
    }
    std::memset(&address.s6_addr[8], 0, 8);
    ::inet_ntop(AF_INET6, &address, text, sizeof(text));
    return std::string(text) + "/64";
}

void decrement(std::map<std::string, size_t>& counts, const std::string& key) {
    const auto found = counts.find(key);
    if (found != counts.end() && --found->second == 0) {
        counts.erase(found);
    }
}

size_t countOf(const std::map<std::string, size_t>& counts, const std::string& key) {
    const auto found = counts.find(key);
    return found == counts.end() ? 0 : found->second;
}

}  // namespace

RelaySessions::RelaySessions(EventLoop& loop, DeviceDirectory& directory, const RelayLimits& limits)
    : loop_(loop),
      directory_(directory),
      limits_(limits),
      timer_(::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)),
      timerWatch_(loop, timer_.get(), [this](uint32_t) { onTick(); }) {}

const char* RelaySessions::refusal(const std::string& deviceIndex, const std::string& clientKey) const {
    if (sessions_.size() >= limits_.maxRelays) {
        return "the daemon's relays are all in use";
    }
    if (countOf(perDevice_, deviceIndex) >= limits_.maxPerDevice) {
        return "the device's relays are all in use";
    }
    if (countOf(perClient_, clientKey) >= limits_.maxPerClient) {
        return "the client has all the relays it may have";
    }
    return nullptr;
}

void RelaySessions::start(UniqueFd client, const std::string& deviceIndex) {
    const std::string clientKey = clientKeyOf(client.get());
    if (const char* refused = refusal(deviceIndex, clientKey)) {
        MEDIAD_LOG(gwlog::kWarning, "relay for device %s refused to %s: %s", deviceIndex.c_str(), clientKey.c_str(),
                   refused);
        return;
    }
    const DeviceRoute& route = directory_.forRelay(deviceIndex);
    if (!route.usable) {
        MEDIAD_LOG(gwlog::kWarning, "relay for device %s refused: %s", deviceIndex.c_str(), route.error.c_str());
        return;
    }
    UniqueFd deviceSocket(::socket(route.address.storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!deviceSocket.valid()) {
        MEDIAD_LOG(gwlog::kWarning, "relay for device %s refused: socket: %s", deviceIndex.c_str(),
                   std::strerror(errno));
        return;
    }
    const uint64_t id = nextId_++;
    Live& live = sessions_[id];
    live.deviceIndex = deviceIndex;
    live.clientKey = clientKey;
    live.session = std::make_unique<RelaySession>(loop_, std::move(client), std::move(deviceSocket), deviceIndex,
                                                  [this, id] { loop_.post([this, id] { end(id); }); });
    ++perDevice_[deviceIndex];
    ++perClient_[clientKey];
    armTimer(true);
    MEDIAD_LOG(gwlog::kDetail, "relay for device %s from %s to %s started", deviceIndex.c_str(), clientKey.c_str(),
               route.rtspAddress.c_str());
    live.session->connect(route.address);
}

void RelaySessions::end(uint64_t id) {
    const auto found = sessions_.find(id);
    if (found == sessions_.end()) {
        return;
    }
    decrement(perDevice_, found->second.deviceIndex);
    decrement(perClient_, found->second.clientKey);
    sessions_.erase(found);
    armTimer(!sessions_.empty());
}

void RelaySessions::armTimer(bool on) {
    if (on == timerArmed_ || !timer_.valid()) {
        return;
    }
    itimerspec period {};
    if (on) {
        period.it_value.tv_sec = 1;
        period.it_interval.tv_sec = 1;
    }
    timerArmed_ = ::timerfd_settime(timer_.get(), 0, &period, nullptr) == 0 && on;
    if (!timerWatch_.setEvents(timerArmed_ ? uint32_t {EPOLLIN} : 0) && on) {
        MEDIAD_LOG(gwlog::kError, "the relays' time limits cannot be watched: %s", std::strerror(errno));
    }
}

void RelaySessions::onTick() {
    uint64_t expirations = 0;
    while (::read(timer_.get(), &expirations, sizeof(expirations)) > 0) {
    }
    const auto now = RelaySession::Clock::now();
    for (auto& [id, live] : sessions_) {
        live.session->enforceLimits(now, limits_.firstRequest, limits_.idle);
    }
}

}  // namespace mediad
