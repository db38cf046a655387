// The live relayed connections: starts one per accepted client, ends them, bounds their number.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include "EventLoop.h"
#include "RelaySession.h"
#include "UniqueFd.h"

namespace mediad {

using gwio::UniqueFd;

class RelaySessions {
public:
    RelaySessions(EventLoop& loop, size_t maxSessions) : loop_(loop), maxSessions_(maxSessions) {}

    // Relays client to the device's RTSP address as the device store holds it now; the client
    // is closed (and the reason logged) when the device or its address cannot be used.
    void start(UniqueFd client, const std::string& deviceIndex);
    size_t count() const { return sessions_.size(); }

private:
    EventLoop& loop_;
    const size_t maxSessions_;
    uint64_t nextId_ = 0;
    std::unordered_map<uint64_t, std::unique_ptr<RelaySession>> sessions_;
};

}  // namespace mediad
