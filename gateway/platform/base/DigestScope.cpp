#include "ZQGatewayDigest.h"

#include "base/DigestHeader.h"

namespace {

thread_local std::string scopeOfThisThread;

}  // namespace

void ZQ_Gateway_SetDigestScope(const std::string& scope) { scopeOfThisThread = scope; }

std::string ZQ_Gateway_DigestScope() { return scopeOfThisThread; }

std::optional<std::map<std::string, std::string>> ZQ_Gateway_ParseDigestHeader(const std::string& header) {
    return zqbase::parseDigestHeader(header);
}
