// Hands an authenticated TELMI request to its device and the device's answer back to the
// client: the request target, method, body and end-to-end headers travel unchanged; the
// gateway's own credentials and the hop-by-hop headers do not.
#pragma once

#include <httplib.h>

#include <string>

namespace gatewayd {

// Forwards req to the TELMI address of the device with that index and fills res with the
// device's answer, or with 404 (device gone) or 502 (no address, device unreachable).
void forwardToDevice(const std::string& deviceIndex, const std::string& clientAddress, const httplib::Request& req,
                     httplib::Response& res);

}  // namespace gatewayd
