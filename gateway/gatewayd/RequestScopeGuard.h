// The request this thread serves, for the platform calls that the library makes on the same
// thread: the Digest scope its nonces belong to, and one view of the settings for all its
// reads. Both end with the request.
#pragma once

#include <string>

#include "ZQGatewayDigest.h"
#include "ZQGatewayHome.h"

namespace gatewayd {

class RequestScopeGuard {
public:
    explicit RequestScopeGuard(const std::string& digestScope) {
        ZQ_Gateway_SetDigestScope(digestScope);
        ZQ_Gateway_HoldSettings(true);
    }
    ~RequestScopeGuard() {
        ZQ_Gateway_HoldSettings(false);
        ZQ_Gateway_SetDigestScope("");
    }
    RequestScopeGuard(const RequestScopeGuard&) = delete;
    RequestScopeGuard& operator=(const RequestScopeGuard&) = delete;
};

}  // namespace gatewayd
