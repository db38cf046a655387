#include "RelaySessions.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "DeviceAddress.h"
#include "DeviceDirectory.h"
#include "MediadLog.h"

namespace mediad {

void RelaySessions::start(UniqueFd client, const std::string& deviceIndex) {
    if (sessions_.size() >= maxSessions_) {
        MEDIAD_LOG(4, "relay for device %s refused: %zu relays already run", deviceIndex.c_str(), sessions_.size());
        return;
    }
    std::string rtspAddress, error;
    const DeviceLookup lookup = lookupRtspAddress(deviceIndex, rtspAddress);
    if (lookup != DeviceLookup::found) {
        MEDIAD_LOG(4, "relay for device %s refused: %s", deviceIndex.c_str(),
                   lookup == DeviceLookup::unknown ? "no such device" : "device store unreadable");
        return;
    }
    SocketAddress address;
    if (!parseDeviceAddress(rtspAddress, address, error)) {
        MEDIAD_LOG(4, "relay for device %s refused: %s", deviceIndex.c_str(), error.c_str());
        return;
    }
    UniqueFd deviceSocket(::socket(address.storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!deviceSocket.valid()) {
        MEDIAD_LOG(4, "relay for device %s refused: socket: %s", deviceIndex.c_str(), std::strerror(errno));
        return;
    }
    const uint64_t id = nextId_++;
    auto session = std::make_unique<RelaySession>(loop_, std::move(client), std::move(deviceSocket), deviceIndex,
                                                  [this, id] { loop_.post([this, id] { sessions_.erase(id); }); });
    RelaySession& started = *session;
    sessions_.emplace(id, std::move(session));
    MEDIAD_LOG(2, "relay for device %s to %s started", deviceIndex.c_str(), rtspAddress.c_str());
    started.connect(address);
}

}  // namespace mediad
