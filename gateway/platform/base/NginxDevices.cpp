#include <arpa/inet.h>

#include "PortNumber.h"
#include "ZQGatewayNginx.h"

std::string ZQ_Gateway_DeviceUpstream(const std::string& deviceIndex) { return "telmi_device_" + deviceIndex; }

std::string ZQ_Gateway_TelmiHostPort(const std::string& telmiAddress) {
    static const std::string kScheme = "http://";
    if (telmiAddress.compare(0, kScheme.size(), kScheme) != 0) {
        return "";
    }
    const std::string authority =
        telmiAddress.substr(kScheme.size(), telmiAddress.find('/', kScheme.size()) - kScheme.size());
    std::string host = authority;
    std::string port = "80";
    const size_t closing = authority.find(']');
    const size_t colon = authority.find(':', closing == std::string::npos ? 0 : closing);
    if (authority.empty() || (authority.front() == '[') != (closing != std::string::npos)) {
        return "";
    }
    if (colon != std::string::npos) {
        host = authority.substr(0, colon);
        port = authority.substr(colon + 1);
    }
    uint16_t portNumber = 0;
    if (!gwio::parsePortNumber(port, portNumber)) {
        return "";
    }
    if (host == "localhost") {
        return "127.0.0.1:" + port;
    }
    in_addr v4 {};
    in6_addr v6 {};
    const bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
    if ((!bracketed && ::inet_pton(AF_INET, host.c_str(), &v4) == 1) ||
        (bracketed && ::inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), &v6) == 1)) {
        return host + ":" + std::to_string(portNumber);
    }
    return "";
}
