// Names the Digest scope of the request this thread serves, for the platform's nonce calls that
// the library makes on the same thread, and clears it again when the request is done.
#pragma once

#include <string>

#include "ZQGatewayDigest.h"

namespace gatewayd {

class DigestScopeGuard {
public:
    explicit DigestScopeGuard(const std::string& scope) { ZQ_Gateway_SetDigestScope(scope); }
    ~DigestScopeGuard() { ZQ_Gateway_SetDigestScope(""); }
    DigestScopeGuard(const DigestScopeGuard&) = delete;
    DigestScopeGuard& operator=(const DigestScopeGuard&) = delete;
};

}  // namespace gatewayd
