// The live relayed connections: starts one per accepted client, ends them, bounds their number
// (in all, per device and per client) and their time without traffic.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>

#include "DeviceDirectory.h"
#include "EventLoop.h"
#include "RelaySession.h"
#include "UniqueFd.h"

namespace mediad {

using gwio::EventLoop;
using gwio::UniqueFd;
using gwio::Watch;

struct RelayLimits {
    size_t maxRelays = 1024;
    size_t maxPerDevice = 64;
    size_t maxPerClient = 32;  // a client is an IPv4 address or an IPv6 /64
    std::chrono::seconds firstRequest {10};
    std::chrono::seconds idle {120};
};

class RelaySessions {
public:
    RelaySessions(EventLoop& loop, DeviceDirectory& directory, const RelayLimits& limits);

    // Relays client to the device's RTSP address as the device store holds it; the client is
    // closed (and the reason logged) when a limit is reached or the device or its address
    // cannot be used.
    void start(UniqueFd client, const std::string& deviceIndex);
    size_t count() const { return sessions_.size(); }
    bool valid() const { return timer_.valid(); }

private:
    struct Live {
        std::unique_ptr<RelaySession> session;
        std::string deviceIndex;
        std::string clientKey;
    };

    // Which limit keeps this client out; null when none does.
    const char* refusal(const std::string& deviceIndex, const std::string& clientKey) const;
    void end(uint64_t id);
    // The time limits are checked once a second while any relay runs.
    void armTimer(bool on);
    void onTick();

    EventLoop& loop_;
    DeviceDirectory& directory_;
    const RelayLimits limits_;
    uint64_t nextId_ = 0;
    std::unordered_map<uint64_t, Live> sessions_;
    std::map<std::string, size_t> perDevice_, perClient_;
    UniqueFd timer_;
    Watch timerWatch_;
    bool timerArmed_ = false;
};

}  // namespace mediad
