// Registers simulated devices with the gateway through its management API (HTTP Digest as the
// gateway's "admin"): POST /api/devices, DELETE /api/devices/{deviceIndex}.
#pragma once

#include <httplib.h>

#include <memory>
#include <string>

#include "DeviceSpec.h"

namespace devsim {

class ManagementClient {
public:
    // url: "http://host:port" of the management API.
    ManagementClient(const std::string& url, const std::string& adminPassword);

    // The device's new device index, or false with a message.
    bool registerDevice(const DeviceSpec& device, std::string& deviceIndex, std::string& error);
    bool unregisterDevice(const std::string& deviceIndex, std::string& error);

private:
    httplib::Client client_;
};

// "http://host:port" with nothing after the port; false with a message otherwise.
bool checkManagementUrl(const std::string& url, std::string& error);

}  // namespace devsim
