// The management API's routes, one registration per resource; ManagementApi.cpp puts them
// behind the admin guard and the JSON error handling.
#pragma once

#include <httplib.h>

#include "TelmiLibrary.h"

namespace gatewayd {

// GET/PUT /api/telmi
void addTelmiSwitchRoutes(httplib::Server& server, const TelmiLibrary& library);
// GET/POST /api/users, POST /api/users/quick, PUT /api/users/{userIndex}, POST /api/users/delete
void addUserRoutes(httplib::Server& server, const TelmiLibrary& library);
// GET/POST /api/ports, POST /api/ports/unbind, POST /api/ports/{portIndex}/retry
void addPortRoutes(httplib::Server& server, const TelmiLibrary& library);
// GET/POST /api/devices, DELETE /api/devices/{deviceIndex}
void addDeviceRoutes(httplib::Server& server);

// Every route above, the admin Digest guard before each, and JSON errors for refusals,
// unknown routes and failures.
void installManagementApi(httplib::Server& server, const TelmiLibrary& library);

}  // namespace gatewayd
