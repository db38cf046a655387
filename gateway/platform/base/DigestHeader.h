#pragma once

#include <map>
#include <optional>
#include <string>

namespace zqbase {

// The parameters of an HTTP Digest Authorization header, names lower-cased, quoted values
// unescaped. Empty when the header is not a well-formed Digest header, repeats a parameter or
// names one that RFC 7616 does not define.
std::optional<std::map<std::string, std::string>> parseDigestHeader(const std::string& header);

// The response a client must send (RFC 2617/7616, MD5): with qop "auth" over nonce, nc, cnonce
// and qop, without qop over the nonce alone. Empty when qop is neither absent nor "auth".
std::optional<std::string> expectedDigestResponse(const std::map<std::string, std::string>& params,
                                                  const std::string& method, const std::string& ha1);

// Constant-time comparison of two response texts.
bool digestResponsesEqual(const std::string& a, const std::string& b);

}  // namespace zqbase
