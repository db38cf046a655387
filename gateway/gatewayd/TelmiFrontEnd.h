// The TELMI front ends: every request is authenticated by the library's Digest check and, once
// it passes, forwarded to the device the check names.
//   user mode: one gateway port; the client answers as the device's TELMI user (mode 1);
//   port mode: nginx's per-device ports proxy here over the front end's Unix socket, naming
//     the port in X-TELMI-Port and the client in X-Real-IP; the client answers as the
//     gateway's "admin" (mode 2).
// While the TELMI switch is off both refuse with 403; a request without Digest credentials is
// challenged without the library counting a failure.
#pragma once

#include <httplib.h>

#include "TelmiLibrary.h"

namespace gatewayd {

void installUserModeFrontEnd(httplib::Server& server, const TelmiLibrary& library);
void installPortModeFrontEnd(httplib::Server& server, const TelmiLibrary& library);

}  // namespace gatewayd
