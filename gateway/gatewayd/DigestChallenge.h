// The gateway's Digest challenge for requests the service answers itself (the management API,
// and TELMI requests that carry no credentials at all), in the library's own challenge form so
// that clients meet one style: fresh platform nonce, the configured realm.
#pragma once

#include <string>

namespace gatewayd {

// "Digest qop=\"auth\", realm=\"<realm>\", nonce=\"<nonce>\", stale=\"TRUE|FALSE\"" with a nonce of
// the calling thread's scope; empty when no nonce or realm can be had. The TELMI realm unless
// another is named.
std::string digestChallenge(bool stale, const std::string& realm = "");

// The value of name="..." in a Digest Authorization header, empty when absent.
std::string digestParameter(const std::string& header, const char* name);

// True when the Authorization header is a Digest one (scheme compared without case).
bool isDigestHeader(const std::string& header);

}  // namespace gatewayd
