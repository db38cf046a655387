// Where a relayed connection goes: the device's RTSP address from the device store.
#pragma once

#include <sys/socket.h>

#include <string>

namespace mediad {

struct SocketAddress {
    sockaddr_storage storage {};
    socklen_t length = 0;
};

// Accepts "rtsp://[user:password@]host[:port][/path]", "host:port", "host" and "[v6 address]:port";
// the port defaults to 554. The host must be a numeric IPv4 or IPv6 address or "localhost": names
// are not resolved, so a slow DNS server can never stall the event loop.
bool parseDeviceAddress(const std::string& text, SocketAddress& address, std::string& error);

}  // namespace mediad
