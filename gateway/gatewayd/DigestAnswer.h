// A Digest answer as the client sent it. cpp-httplib (the API's server) hands header values
// over percent-decoded, while the client computed its response over the request target exactly
// as sent ("a%20b"), so the answer is rebuilt with the target as sent before anything checks
// it: an answer whose decoded uri is not the decoded target names another request. The TELMI
// admission check gets both untouched from nginx and passes the same target twice.
#pragma once

#include <string>

namespace gatewayd {

enum class DigestAnswerFault { none, malformed, otherTarget };

// rebuilt: the Authorization header to check, with uri = sentTarget: the header itself when
// that already holds and the library's text search reads the parser's user name from it, else
// the parameters in one canonical form. A header the strict parser refuses, or whose user name
// the library would still read differently, is malformed.
DigestAnswerFault rebuildDigestAnswer(const std::string& decodedHeader, const std::string& decodedTarget,
                                      const std::string& sentTarget, std::string& rebuilt, std::string& userName);

}  // namespace gatewayd
