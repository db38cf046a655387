// Registers simulated devices with the gateway through its management API:
// POST /api/devices, DELETE /api/devices/{deviceIndex}.
#pragma once

#include <string>

#include "DeviceSpec.h"
#include "ManagementClient.h"

namespace devsim {

// The device's new device index, or false with a message.
bool registerDevice(gwapi::ManagementClient& gateway, const DeviceSpec& device, std::string& deviceIndex,
                    std::string& error);
// Removes the device from the gateway; true too when the gateway no longer has it.
bool unregisterDevice(gwapi::ManagementClient& gateway, const std::string& deviceIndex, std::string& error);

}  // namespace devsim
