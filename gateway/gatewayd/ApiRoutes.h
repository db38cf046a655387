// The management API's routes, one registration per resource; ManagementApi.cpp puts them
// behind the admin guard and the JSON error handling.
#pragma once

#include <httplib.h>

#include "ApiRouter.h"
#include "ListenerKeeper.h"
#include "TelmiLibrary.h"

namespace gatewayd {

// GET/PUT /api/telmi
void addTelmiSwitchRoutes(ApiRouter& routes, const TelmiLibrary& library);
// GET/POST /api/users, POST /api/users/quick, PUT /api/users/{userIndex}, POST /api/users/delete
void addUserRoutes(ApiRouter& routes, const TelmiLibrary& library);
// GET/POST /api/ports, POST /api/ports/unbind, POST /api/ports/{portIndex}/retry
void addPortRoutes(ApiRouter& routes, const TelmiLibrary& library);
// GET /api/devices[?start&max&keyword&reach=1], POST /api/devices, DELETE /api/devices/{deviceIndex}
void addDeviceRoutes(ApiRouter& routes);
// GET /api/lockouts, DELETE /api/lockouts[?user=NAME|port=N][&requester=ADDRESS]
void addLockoutRoutes(ApiRouter& routes);
// PUT /api/credentials/management, PUT /api/credentials/port-mode
void addCredentialRoutes(ApiRouter& routes);
// GET /api/settings/check
void addSettingsRoutes(ApiRouter& routes);
// GET /api/health, GET /api/listeners, POST /api/listeners/repair
void addListenerRoutes(ApiRouter& routes, ListenerKeeper& keeper);

// Every route above, the admin Digest guard before each, and JSON errors for refusals,
// unknown routes, wrong methods and failures. The router must live as long as the server.
void installManagementApi(httplib::Server& server, ApiRouter& routes, const TelmiLibrary& library,
                          ListenerKeeper& keeper);

}  // namespace gatewayd
