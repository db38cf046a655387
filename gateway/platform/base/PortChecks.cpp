// Port probing and free-port picking.
//
// The mode argument of CheckPort and CheckPortOccupy selects the transport: 1 is TCP (IPv4 and
// IPv6 listening sockets); no other mode is supported (CheckPort answers -2, CheckPortOccupy 1).
// When the kernel cannot be asked, a port counts as in use, so that it is never handed out.
#include "LogLevel.h"
#include "ZQBase.h"
#include "ZQGatewayDevices.h"
#include "ZQGatewayHome.h"
#include "base/PortProbe.h"
#include "tvlog.h"

namespace {

constexpr int kTcp = 1;

bool listenedOn(unsigned short port) { return CheckPort(port, kTcp) == -1; }

int pickPort(unsigned short* port, bool http) {
    if (port == nullptr) {
        return 0;
    }
    ZQGateway::tagGatewaySettings s;
    ZQ_Gateway_GetSettings(s);
    unsigned short picked = 0;
    int result = http ? ZQ_DeviceMgr_ReservePort(picked, s.httpPortFirst, s.httpPortLast, listenedOn)
                      : ZQ_DeviceMgr_ReservePort(picked, s.rtspPortFirst, s.rtspPortLast, listenedOn);
    if (result != 0) {
        tvlog_format(gwlog::kWarning, "ZQBase", "no free %s port: store code %d", http ? "HTTP" : "RTSP", result);
        return 0;
    }
    *port = picked;
    return 1;
}

}  // namespace

int CheckPort(int port, int mode) {
    if (mode != kTcp) {
        return -2;
    }
    if (port <= 0 || port > 65535) {
        return 0;
    }
    auto listening = zqbase::tcpListening(static_cast<uint16_t>(port));
    if (!listening) {
        tvlog_format(gwlog::kError, "ZQBase", "socket diagnostics unavailable; port %d taken as in use", port);
        return -1;
    }
    return *listening ? -1 : 0;
}

int CheckPortOccupy(std::list<int> pids, std::string ip, int port, int mode) {
    if (mode != kTcp || port <= 0 || port > 65535) {
        return 1;
    }
    auto listeners = zqbase::tcpListeners(static_cast<uint16_t>(port));
    if (!listeners) {
        return 1;
    }
    const bool anyAddress = ip.empty() || ip == "0.0.0.0" || ip == "::";
    for (const auto& listener : *listeners) {
        if ((anyAddress || listener.wildcard || listener.address == ip) && !zqbase::heldByAny(pids, listener.inode)) {
            return 1;
        }
    }
    return 0;
}

int getHttpPort(unsigned short* port) { return pickPort(port, true); }

int getRtspPort(unsigned short* port) { return pickPort(port, false); }
