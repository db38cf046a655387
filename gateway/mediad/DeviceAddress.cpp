#include "DeviceAddress.h"

#include <netdb.h>

#include <cstring>

#include "ZQGatewayDevices.h"

namespace mediad {

bool parseDeviceAddress(const std::string& text, SocketAddress& address, std::string& error) {
    ZQGateway::tagDeviceEndpoint endpoint;
    if (text.empty() || !ZQ_DeviceMgr_ParseDeviceAddress(text, ZQGateway::kRtspDefaultPort, endpoint)) {
        error = "not an RTSP address: \"" + text + "\"";
        return false;
    }
    if (ZQ_DeviceMgr_CheckDeviceAddress(text, ZQGateway::kRtspDefaultPort, error) != ZQGateway::storeOk) {
        return false;
    }
    addrinfo hints {};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    const int rc = ::getaddrinfo(endpoint.host.c_str(), std::to_string(endpoint.port).c_str(), &hints, &found);
    if (rc != 0 || found == nullptr) {
        error = "host of \"" + text + "\" is not a numeric address: " + ::gai_strerror(rc);
        return false;
    }
    std::memcpy(&address.storage, found->ai_addr, found->ai_addrlen);
    address.length = found->ai_addrlen;
    ::freeaddrinfo(found);
    return true;
}

}  // namespace mediad
