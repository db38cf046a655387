// The devices' RTSP addresses, read from the device store (the host process adds and removes
// devices while the daemon runs). Relays take them from a short-lived cache, so that a burst of
// clients costs the event loop one store read per device instead of one per connection;
// commands naming a device read it afresh and renew its entry.
#pragma once

#include <chrono>
#include <string>
#include <unordered_map>

#include "DeviceAddress.h"

namespace mediad {

enum class DeviceLookup { found, unknown, storeFailed };

struct DeviceRoute {
    DeviceLookup lookup = DeviceLookup::storeFailed;
    bool usable = false;    // found, with an address the gateway may relay to
    SocketAddress address;  // when usable
    std::string rtspAddress;
    std::string error;  // why not usable
};

class DeviceDirectory {
public:
    // How long a relay may use what the store said of a device.
    static constexpr std::chrono::seconds kCacheLife {10};

    // For a relay: the cached route when it is fresh enough, else read afresh.
    const DeviceRoute& forRelay(const std::string& deviceIndex);
    // For a command: read afresh; the cache keeps the new route.
    const DeviceRoute& reread(const std::string& deviceIndex);
    void forget(const std::string& deviceIndex) { routes_.erase(deviceIndex); }

private:
    struct Cached {
        DeviceRoute route;
        std::chrono::steady_clock::time_point readAt;
    };
    std::unordered_map<std::string, Cached> routes_;
};

}  // namespace mediad
