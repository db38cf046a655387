// The TELMI admission check: nginx serves every TELMI port and, before it proxies a request to
// its device, asks here whether the request may pass (auth_request over a private Unix socket).
// nginx states what it saw itself, never what the client claims:
//   X-TELMI-Mode   "user" (the user-mode port: the client answers as the device's TELMI user)
//                  or "port" (a device's own port: the client answers as the gateway's "admin");
//   X-TELMI-Port   the gateway port the request came to;
//   X-TELMI-Client the client's address (the lock-out key is made from it);
//   X-TELMI-Method the client's method; the request line carries the client's target as sent
//   (X-TELMI-Target the same, decoded: see DigestAnswer.h); plus the client's Authorization.
// Admitted: 204 with X-TELMI-Upstream (nginx's upstream of the device) and X-TELMI-Device-Host.
// Refused: the status in X-TELMI-Status, a sentence in X-TELMI-Message and, for 401, the
// challenge in WWW-Authenticate.
#pragma once

#include <httplib.h>

#include "TelmiLibrary.h"

namespace gatewayd {

void installTelmiAdmission(httplib::Server& server, const TelmiLibrary& library);

}  // namespace gatewayd
