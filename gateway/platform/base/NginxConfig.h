// The text of the gateway's nginx configuration. nginx is the only door TELMI clients and
// administrators knock on: it bounds every connection (deadlines, header and body sizes) before
// a byte reaches the host service, asks the host over a private Unix socket whether each TELMI
// request may pass (auth_request), and then proxies the request and its body straight to the
// device, over connections it keeps alive per device.
#pragma once

#include <set>
#include <string>
#include <vector>

namespace zqbase {

struct NginxFiles {
    std::string prefix;   // <home>/nginx
    std::string conf;     // nginx.conf: regenerated at every reboot
    std::string ports;    // telmi-ports.conf: the bound devices' ports, rewritten per binding
    std::string devices;  // telmi-devices.conf: one upstream per device, regenerated at every reboot
    std::string request;  // telmi-request.conf: what every TELMI server does with a request
    std::string pid, errorLog, lock;
    std::string authSocket;  // the host's TELMI admission check
    std::string apiSocket;   // the host's management API
};

struct NginxServices {
    unsigned short managementPort = 0;
    unsigned short userPort = 0;  // 0: no user-mode server
    bool ipv6 = false;            // the host has IPv6: TELMI servers listen on [::] too
    std::string workerUser;       // "user group" when started by root, else empty
};

// A device's upstream: its name (ZQ_Gateway_DeviceUpstream) and "host:port", empty when the
// device's TELMI address cannot be dialled (the upstream is then marked down).
struct NginxDevice {
    std::string upstream;
    std::string hostPort;
};

// Limits, also in docs/gateway-platform.md.
constexpr const char* kTelmiBodyLimit = "32m";
constexpr const char* kApiBodyLimit = "1m";

std::string nginxMainConfig(const NginxFiles& files, const NginxServices& services);
std::string nginxPortsConfig(const NginxFiles& files, const std::set<int>& ports, bool ipv6);
std::string nginxDevicesConfig(const std::vector<NginxDevice>& devices);
std::string nginxRequestConfig();

}  // namespace zqbase
