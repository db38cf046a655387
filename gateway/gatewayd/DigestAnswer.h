// A Digest answer as the client sent it. cpp-httplib (the API's server) hands header values
// over percent-decoded, while the client computed its response over the request target exactly
// as sent ("a%20b"), so the answer is rebuilt with the target as sent before anything checks
// it: an answer whose decoded uri is not the decoded target names another request. The TELMI
// admission check gets both untouched from nginx and passes the same target twice.
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
