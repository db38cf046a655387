#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "ZQGatewayDigest.h"

namespace zqbase {

// ASCII letters compared without case, as Digest names and tokens are.
bool sameIgnoringCase(std::string_view a, std::string_view b);

// The response a client must send (RFC 2617/7616, MD5): with qop "auth" over nonce, nc, cnonce
// and qop, without qop over the nonce alone. Empty when qop is neither absent nor "auth".
std::optional<std::string> expectedDigestResponse(const ZQGateway::DigestParams& params, std::string_view method,
                                                  std::string_view ha1);

// Constant-time comparison of two response texts.
bool digestResponsesEqual(std::string_view a, std::string_view b);

}  // namespace zqbase
