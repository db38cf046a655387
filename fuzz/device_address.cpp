// Device addresses as the device store and the media daemon read them, and the network ranges
// of the settings. Whatever the media daemon resolves to connect to must be exactly the address
// and port the store's rule looked at, and a range always holds its own base address.
#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "DeviceAddress.h"
#include "config/NetworkRange.h"
#include "devices/DeviceAddressRule.h"

namespace {

// The address the daemon connects to, in the rule's 16-byte form.
bool sameEndpoint(const mediad::SocketAddress& resolved, const zqgw::IpAddress& ip, uint16_t port) {
    if (resolved.storage.ss_family == AF_INET) {
        const auto& v4 = reinterpret_cast<const sockaddr_in&>(resolved.storage);
        return ip.isV4() && std::memcmp(&ip.bytes.s6_addr[12], &v4.sin_addr, 4) == 0 && ntohs(v4.sin_port) == port;
    }
    // An IPv4-mapped IPv6 address reaches the IPv4 host the rule holds it for.
    const auto& v6 = reinterpret_cast<const sockaddr_in6&>(resolved.storage);
    return resolved.storage.ss_family == AF_INET6 && std::memcmp(&ip.bytes, &v6.sin6_addr, sizeof(ip.bytes)) == 0 &&
           ntohs(v6.sin6_port) == port;
}

}  // namespace

// Input: the device address, then after a line feed a network range for allowedDeviceNetworks.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t split = input.find('\n');
    const std::string address = input.substr(0, split);
    const std::string network = split == std::string::npos ? "" : input.substr(split + 1);

    const auto range = zqgw::NetworkRange::parse(network);
    if (range && !range->contains(*zqgw::parseIpAddress(network.substr(0, network.find('/'))))) {
        std::abort();
    }

    ZQGateway::tagDeviceEndpoint endpoint;
    const bool parsed = zqgw::parseDeviceAddress(address, 554, endpoint);
    if (parsed && (endpoint.host.empty() || endpoint.port == 0)) {
        std::abort();
    }
    ZQGateway::tagGatewaySettings settings;
    settings.allowedDeviceNetworks = {network};
    std::string why;
    const int verdict = zqgw::checkDeviceAddress(address, 554, settings, why);
    if (verdict != ZQGateway::storeOk && (verdict != ZQGateway::storeAddressRefused || why.empty())) {
        std::abort();
    }

    mediad::SocketAddress resolved;
    std::string error;
    if (mediad::parseDeviceAddress(address, resolved, error)) {
        const auto ip = zqgw::parseIpAddress(endpoint.host);
        if (!parsed || !ip || !sameEndpoint(resolved, *ip, endpoint.port)) {
            std::abort();  // the daemon would connect somewhere the rule never looked at
        }
    }
    return 0;
}
