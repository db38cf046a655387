// Which addresses a device may have: the gateway relays clients to them, so an address that
// leads back into the gateway (its loopback-only API, its own ports) would publish what is
// meant to stay private.
#pragma once

#include <string>

#include "ZQGatewayDevices.h"
#include "ZQGatewayHome.h"

namespace zqgw {

bool parseDeviceAddress(const std::string& address, uint16_t defaultPort, ZQGateway::tagDeviceEndpoint& endpoint);

// storeOk, or storeAddressRefused with the reason in why.
int checkDeviceAddress(const std::string& address, uint16_t defaultPort, const ZQGateway::tagGatewaySettings& settings,
                       std::string& why);

}  // namespace zqgw
