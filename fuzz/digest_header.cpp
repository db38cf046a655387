// The Digest Authorization header as the management service admits it: the platform's strict
// parser, then the header handed to the library (as sent, or rebuilt in canonical form).
// Whatever the parser accepts must survive unchanged (but for the uri, which becomes the target
// as sent), and the library's own text search must read the same user name from it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "DigestAnswer.h"
#include "DigestChallenge.h"
#include "ZQGatewayDigest.h"

// Input: the request target as sent, a line feed, then the header.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t split = input.find('\n');
    const std::string sentTarget = split == std::string::npos ? "/" : input.substr(0, split);
    const std::string header = split == std::string::npos ? input : input.substr(split + 1);

    using ZQGateway::DigestParam;
    const auto params = ZQGateway::parseDigestParams(header);
    const std::string decodedTarget =
        params && params->has(DigestParam::uri) ? std::string((*params)[DigestParam::uri]) : sentTarget;
    std::string rebuilt, userName;
    const auto fault = gatewayd::rebuildDigestAnswer(header, decodedTarget, sentTarget, rebuilt, userName);
    if (fault != gatewayd::DigestAnswerFault::none) {
        return 0;
    }
    auto expected = *params;
    expected.set(DigestParam::uri, sentTarget);
    const auto reread = ZQGateway::parseDigestParams(rebuilt);
    if (!reread || *reread != expected) {
        std::abort();  // the rebuilt header says something else than the one admitted
    }
    if (userName != expected[DigestParam::username] || gatewayd::digestParameter(rebuilt, "username") != userName) {
        std::abort();  // the library would check another account than the header names
    }
    return 0;
}
