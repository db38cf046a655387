// Whether devices answer on their TELMI address now: the device store keeps no online state, and
// the gateway does not see the answers nginx relays, so a list that shows it asks the devices.
#pragma once

#include <string>
#include <vector>

namespace gatewayd {

enum class Reach { online, offline, noAddress };

// One TCP connection attempt per address, all at once, waited for together for at most
// timeoutMs; a device that accepts is online.
std::vector<Reach> telmiReach(const std::vector<std::string>& telmiAddresses, int timeoutMs);

}  // namespace gatewayd
