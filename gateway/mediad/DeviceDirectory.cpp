#include "DeviceDirectory.h"

#include <memory>

#include "ZQGatewayDevices.h"

namespace mediad {

const DeviceRoute& DeviceDirectory::forRelay(const std::string& deviceIndex) {
    const auto found = routes_.find(deviceIndex);
    if (found != routes_.end() && std::chrono::steady_clock::now() - found->second.readAt < kCacheLife) {
        return found->second.route;
    }
    return reread(deviceIndex);
}

const DeviceRoute& DeviceDirectory::reread(const std::string& deviceIndex) {
    DeviceRoute route;
    std::shared_ptr<ZQGateway::CGatewayDevice> device;
    switch (ZQ_DeviceMgr_ReadDeviceFromDatabase(device, deviceIndex)) {
        case ZQGateway::storeOk:
            route.lookup = DeviceLookup::found;
            route.rtspAddress = device->getRtspAddress();
            route.usable = parseDeviceAddress(route.rtspAddress, route.address, route.error);
            break;
        case ZQGateway::storeNotFound:
            route.lookup = DeviceLookup::unknown;
            route.error = "no such device";
            break;
        default: route.error = "device store unreadable"; break;
    }
    Cached& cached = routes_[deviceIndex];
    cached.route = std::move(route);
    // A failed read is not kept: the next client tries again.
    cached.readAt = cached.route.lookup == DeviceLookup::storeFailed ? std::chrono::steady_clock::time_point()
                                                                     : std::chrono::steady_clock::now();
    return cached.route;
}

}  // namespace mediad
