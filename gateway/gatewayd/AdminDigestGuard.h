// The management API's door: every request must carry a valid Digest answer of the management
// user "admin" (realm kManagementRealm, HA1 from the configuration store, nonce from the
// platform, checked by the platform's ZQ_BASE_CheckDigest) for this very request target, in the API's own nonce scope.
#pragma once

#include <httplib.h>

namespace gatewayd {

// True when the request may pass; otherwise res holds the 401 with a challenge (stale="TRUE"
// when only the nonce had expired) and a JSON error.
bool admitAdmin(const httplib::Request& req, httplib::Response& res);

}  // namespace gatewayd
