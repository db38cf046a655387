#include "devices/DeviceAddressRule.h"

#include <ifaddrs.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "PortNumber.h"
#include "config/NetworkRange.h"

namespace zqgw {
namespace {

using ZQGateway::storeAddressRefused;
using ZQGateway::storeOk;

// What kind of address the gateway never relays to unless a network of allowedDeviceNetworks
// holds it; null for an ordinary one.
const char* specialKind(const IpAddress& ip) {
    struct Special {
        const char* range;
        const char* kind;
    };
    static const Special kSpecial[] = {
        {"0.0.0.0/8", "an unspecified"}, {"127.0.0.0/8", "a loopback"},      {"169.254.0.0/16", "a link-local"},
        {"224.0.0.0/4", "a multicast"},  {"255.255.255.255", "a broadcast"}, {"::/96", "an unspecified or loopback"},
        {"fe80::/10", "a link-local"},   {"ff00::/8", "a multicast"},
    };
    for (const Special& special : kSpecial) {
        if (NetworkRange::parse(special.range)->contains(ip)) {
            return special.kind;
        }
    }
    return nullptr;
}

bool isOwnAddress(const IpAddress& ip) {
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) {
        return false;
    }
    std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owned(list, ::freeifaddrs);
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        IpAddress own;
        if (entry->ifa_addr == nullptr) {
            continue;
        }
        if (entry->ifa_addr->sa_family == AF_INET) {
            own.bytes.s6_addr[10] = own.bytes.s6_addr[11] = 0xff;
            std::memcpy(&own.bytes.s6_addr[12], &reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)->sin_addr, 4);
        } else if (entry->ifa_addr->sa_family == AF_INET6) {
            own.bytes = reinterpret_cast<const sockaddr_in6*>(entry->ifa_addr)->sin6_addr;
        } else {
            continue;
        }
        if (std::memcmp(&own.bytes, &ip.bytes, sizeof(ip.bytes)) == 0) {
            return true;
        }
    }
    return false;
}

// Loopback and unspecified addresses: a connection to them stays on this machine.
bool reachesThisMachine(const IpAddress& ip) {
    static const char* const kLocal[] = {"0.0.0.0/8", "127.0.0.0/8", "::/127"};
    return std::any_of(std::begin(kLocal), std::end(kLocal),
                       [&ip](const char* range) { return NetworkRange::parse(range)->contains(ip); });
}

bool gatewayListensOn(uint16_t port, const ZQGateway::tagGatewaySettings& s) {
    return port == s.managementPort || (s.telmiUserPort != 0 && port == s.telmiUserPort) ||
           (port >= s.httpPortFirst && port <= s.httpPortLast) || (port >= s.rtspPortFirst && port <= s.rtspPortLast);
}

bool allowed(const IpAddress& ip, const ZQGateway::tagGatewaySettings& settings) {
    return std::any_of(settings.allowedDeviceNetworks.begin(), settings.allowedDeviceNetworks.end(),
                       [&ip](const std::string& network) {
                           const auto range = NetworkRange::parse(network);
                           return range && range->contains(ip);
                       });
}

}  // namespace

bool parseDeviceAddress(const std::string& address, uint16_t defaultPort, ZQGateway::tagDeviceEndpoint& endpoint) {
    std::string authority = address;
    if (const size_t scheme = authority.find("://"); scheme != std::string::npos) {
        authority.erase(0, scheme + 3);
    }
    authority = authority.substr(0, authority.find_first_of("/?#"));
    if (const size_t at = authority.rfind('@'); at != std::string::npos) {
        authority.erase(0, at + 1);
    }
    std::string host, port;
    if (!authority.empty() && authority[0] == '[') {
        const size_t close = authority.find(']');
        if (close == std::string::npos || (close + 1 < authority.size() && authority[close + 1] != ':')) {
            return false;
        }
        host = authority.substr(1, close - 1);
        port = close + 1 < authority.size() ? authority.substr(close + 2) : "";
        if (close + 1 < authority.size() && port.empty()) {
            return false;
        }
    } else if (std::count(authority.begin(), authority.end(), ':') > 1) {
        host = authority;  // a bare IPv6 address, no port
    } else {
        const size_t colon = authority.find(':');
        host = authority.substr(0, colon);
        if (colon != std::string::npos && colon + 1 == authority.size()) {
            return false;
        }
        port = colon == std::string::npos ? "" : authority.substr(colon + 1);
    }
    endpoint.host = host == "localhost" ? "127.0.0.1" : host;
    endpoint.port = defaultPort;
    return !host.empty() && (port.empty() || gwio::parsePortNumber(port, endpoint.port));
}

int checkDeviceAddress(const std::string& address, uint16_t defaultPort, const ZQGateway::tagGatewaySettings& settings,
                       std::string& why) {
    if (address.empty()) {
        return storeOk;  // the device offers no such interface
    }
    ZQGateway::tagDeviceEndpoint endpoint;
    if (!parseDeviceAddress(address, defaultPort, endpoint)) {
        why = "\"" + address + "\" is not an address of the form scheme://host:port";
        return storeAddressRefused;
    }
    const auto ip = parseIpAddress(endpoint.host);
    if (!ip) {
        why = "the host of \"" + address + "\" is not a numeric IPv4 or IPv6 address (names are never resolved)";
        return storeAddressRefused;
    }
    const char* kind = specialKind(*ip);
    const bool own = kind == nullptr && isOwnAddress(*ip);
    if ((own || reachesThisMachine(*ip)) && gatewayListensOn(endpoint.port, settings)) {
        why = "\"" + address + "\" leads to port " + std::to_string(endpoint.port) + " of the gateway itself";
        return storeAddressRefused;
    }
    if ((kind != nullptr || own) && !allowed(*ip, settings)) {
        why = "\"" + address + "\" is " + (own ? "an address of the gateway itself" : std::string(kind) + " address") +
              ", which no network of allowedDeviceNetworks holds";
        return storeAddressRefused;
    }
    return storeOk;
}

}  // namespace zqgw
