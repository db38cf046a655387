// Where a relayed connection goes: the device's RTSP address from the device store.
#pragma once

#include <sys/socket.h>

#include <string>

namespace mediad {

struct SocketAddress {
    sockaddr_storage storage {};
    socklen_t length = 0;
};

// Accepts what the device store accepts ("rtsp://[user:password@]host[:port][/path]",
// "host:port", "host", "[v6 address]:port"; port 554 by default) and only where the store lets
// the gateway go (ZQ_DeviceMgr_CheckDeviceAddress), so that a device registered before a rule
// was tightened is held to it too. Hosts are numeric: names are never resolved, so a slow DNS
// server can never stall the event loop.
bool parseDeviceAddress(const std::string& text, SocketAddress& address, std::string& error);

}  // namespace mediad
