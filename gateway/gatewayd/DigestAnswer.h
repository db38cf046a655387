// A Digest answer as the client sent it. cpp-httplib (the API's server) hands header values
// over percent-decoded, while the client computed its response over the request target exactly
// as sent ("a%20b"), so the answer is rebuilt with the target as sent before anything checks
// it. nginx sends the target both in the request line (untouched) and in a header (decoded like
// the Authorization header): an answer whose decoded uri is not that decoded target names
// another request.
#pragma once

#include <string>

namespace gatewayd {

enum class DigestAnswerFault { none, malformed, otherTarget };

// rebuilt: the Authorization header to check, in one canonical form, with uri = sentTarget.
// A header the strict parser refuses, or whose user name the library's text search would read
// differently, is malformed.
DigestAnswerFault rebuildDigestAnswer(const std::string& decodedHeader, const std::string& decodedTarget,
                                      const std::string& sentTarget, std::string& rebuilt, std::string& userName);

}  // namespace gatewayd
