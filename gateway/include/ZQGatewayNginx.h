// Reference gateway: how the host service and the gateway's nginx meet (libZQBase). Only the
// reference gateway's programs and tests use this header.
//
// nginx serves every TELMI port and the management API's port. For each TELMI request it asks
// the host over kTelmiAdmissionSocket whether the request may pass, and proxies it to the
// upstream the host names (one per device, regenerated from the device store at every Reboot
// of CNginxOper); API requests go to the host over kManagementSocket.
#pragma once

#include <set>
#include <string>
#include <vector>

namespace ZQGateway {

constexpr const char* kTelmiAdmissionSocket = "run/telmi-admission.sock";
constexpr const char* kManagementSocket = "run/api.sock";

}  // namespace ZQGateway

// nginx's name for the upstream of the device with this index.
std::string ZQ_Gateway_DeviceUpstream(const std::string& deviceIndex);

// "host:port" as nginx dials a device's TELMI address ("http://HOST[:PORT][/...]", HOST a
// numeric IPv4 address, a bracketed IPv6 one or "localhost"; port 80 by default); empty when
// the address is none of these. Names are never resolved: a slow resolver would stall nginx.
std::string ZQ_Gateway_TelmiHostPort(const std::string& telmiAddress);

// The TELMI ports nginx's configuration lists: what nginx listens on once it has (re)loaded it.
std::set<int> ZQ_Gateway_NginxConfiguredPorts();
// The device HTTP ports this home's nginx still listens on though its list no longer holds them:
// old workers until they have seen a reload, or a list edited without one.
std::set<int> ZQ_Gateway_NginxUnlistedPorts();
// The pid of this home's running nginx master; 0 when it does not run.
int ZQ_Gateway_NginxMasterPid();
// Empties nginx's TELMI port list, so that the library's start rebuilds it from the stored
// bindings alone (ports of bindings lost meanwhile would otherwise stay); false when it cannot
// be written.
bool ZQ_Gateway_ClearNginxPorts();
// The ports nginx is to listen on (management, user mode, bound devices) that a program other
// than this home's nginx holds, one sentence each naming the port and, where it can be seen, its
// holder: nginx binds its ports alone and would not start. Empty when every one is free.
std::vector<std::string> ZQ_Gateway_NginxPortsTaken();
