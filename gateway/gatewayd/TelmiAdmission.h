// The TELMI admission check: nginx serves every TELMI port and, before it proxies a request to
// its device, asks here whether the request may pass (auth_request over a private Unix socket).
// nginx states what it saw itself, never what the client claims:
//   X-TELMI-Mode   "user" (the user-mode port: the client answers as the device's TELMI user)
//                  or "port" (a device's own port: the client answers as the gateway's "admin");
//   X-TELMI-Port   the gateway port the request came to;
//   X-TELMI-Client the client's address (the lock-out key is made from it);
//   X-TELMI-Method the client's method;
//   X-TELMI-Target the client's target as sent; plus the client's Authorization.
// Admitted: 204 with X-TELMI-Upstream (nginx's upstream of the device) and X-TELMI-Device-Host.
// Refused: the status in X-TELMI-Status, a sentence in X-TELMI-Message and, for 401, the
// challenge in WWW-Authenticate.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "TelmiLibrary.h"

namespace gatewayd {

// One admission question, as nginx's sub-request puts it.
struct AdmissionRequest {
    std::string mode;           // X-TELMI-Mode
    std::string port;           // X-TELMI-Port
    std::string client;         // X-TELMI-Client
    std::string method;         // X-TELMI-Method
    std::string target;         // X-TELMI-Target
    std::string authorization;  // the client's Authorization
};

struct AdmissionAnswer {
    int status = 204;
    std::vector<std::pair<std::string, std::string>> headers;
};

AdmissionAnswer decideAdmission(const TelmiLibrary& library, const AdmissionRequest& request);

}  // namespace gatewayd
