#include "ZQGatewayDigest.h"

namespace {

thread_local std::string scopeOfThisThread;

}  // namespace

void ZQ_Gateway_SetDigestScope(const std::string& scope) { scopeOfThisThread = scope; }

std::string ZQ_Gateway_DigestScope() { return scopeOfThisThread; }
