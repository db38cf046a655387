// Reference gateway: Digest scopes and header parsing (libZQBase). Only the reference
// gateway's programs and tests use this header.
//
// The library's Digest calls (CreateNonce, ZQ_BASE_CheckDigest) carry no word of which service
// a request came to. The host names it for the calling thread before it calls the library, so
// that a nonce issued by one service (the management API, user mode, one device port) is
// refused by every other one: it is answered as stale, which costs an honest client one more
// round trip and never counts as a failure.
#pragma once

#include <map>
#include <optional>
#include <string>

// The calling thread's Digest scope from now on ("" is the scope of callers that name none).
void ZQ_Gateway_SetDigestScope(const std::string& scope);
std::string ZQ_Gateway_DigestScope();

// The parameters of a Digest Authorization header, names lower-cased and quoted values
// unescaped, as ZQ_BASE_CheckDigest reads them. Empty when the header is not a well-formed
// Digest header: a parameter given twice, or one that RFC 7616 does not define, is refused, so
// that no two readers of the header can take different values from it.
std::optional<std::map<std::string, std::string>> ZQ_Gateway_ParseDigestHeader(const std::string& header);

// The scopes the gateway's services use.
namespace ZQGateway {
inline std::string managementScope() { return "api"; }
inline std::string userModeScope() { return "user"; }
inline std::string portModeScope(unsigned port) { return "port:" + std::to_string(port); }
}  // namespace ZQGateway
