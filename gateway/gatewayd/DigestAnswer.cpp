#include "DigestAnswer.h"

#include "DigestChallenge.h"
#include "ZQGatewayDigest.h"

namespace gatewayd {
namespace {

using ZQGateway::DigestParam;
using ZQGateway::DigestParams;

const char* const kTokenChars = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-";

std::string quoted(std::string_view value) {
    std::string text = "\"";
    for (char c : value) {
        if (c == '"' || c == '\\') {
            text.push_back('\\');
        }
        text.push_back(c);
    }
    return text + "\"";
}

}  // namespace

DigestAnswerFault rebuildDigestAnswer(const std::string& decodedHeader, const std::string& decodedTarget,
                                      const std::string& sentTarget, std::string& rebuilt, std::string& userName) {
    auto params = ZQGateway::parseDigestParams(decodedHeader);
    if (!params || !params->has(DigestParam::username) || !params->has(DigestParam::uri)) {
        return DigestAnswerFault::malformed;
    }
    if ((*params)[DigestParam::uri] != decodedTarget) {
        return DigestAnswerFault::otherTarget;
    }
    userName = (*params)[DigestParam::username];
    // The library finds the user name by a text search of the header it is given.
    if (decodedTarget == sentTarget && digestParameter(decodedHeader, "username") == userName) {
        rebuilt = decodedHeader;
        return DigestAnswerFault::none;
    }
    params->set(DigestParam::uri, sentTarget);
    rebuilt = "Digest ";
    for (size_t p = 0; p < ZQGateway::kDigestParamCount; ++p) {
        const auto param = static_cast<DigestParam>(p);
        if (!params->has(param)) {
            continue;
        }
        const std::string_view value = (*params)[param];
        // RFC 7616 sends these two as tokens; everything else is quoted.
        const bool token = (param == DigestParam::nc || param == DigestParam::qop) && !value.empty() &&
                           value.find_first_not_of(kTokenChars) == std::string_view::npos;
        rebuilt.append(rebuilt.size() > 7 ? ", " : "").append(DigestParams::name(param)).append("=");
        rebuilt += token ? std::string(value) : quoted(value);
    }
    return digestParameter(rebuilt, "username") == userName ? DigestAnswerFault::none : DigestAnswerFault::malformed;
}

}  // namespace gatewayd
