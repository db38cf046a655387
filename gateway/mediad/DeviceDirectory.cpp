#include "DeviceDirectory.h"

#include <memory>

#include "ZQGatewayDevices.h"

namespace mediad {

DeviceLookup lookupRtspAddress(const std::string& deviceIndex, std::string& rtspAddress) {
    std::shared_ptr<ZQGateway::CGatewayDevice> device;
    switch (ZQ_DeviceMgr_ReadDeviceFromDatabase(device, deviceIndex)) {
        case ZQGateway::storeOk:
            rtspAddress = device->getRtspAddress();
            return DeviceLookup::found;
        case ZQGateway::storeNotFound:
            return DeviceLookup::unknown;
        default:
            return DeviceLookup::storeFailed;
    }
}

}  // namespace mediad
