#include "DigestAnswer.h"

#include "DigestChallenge.h"
#include "ZQGatewayDigest.h"

namespace gatewayd {
namespace {

const char* const kTokenChars = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-";

std::string quoted(const std::string& value) {
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
    auto params = ZQ_Gateway_ParseDigestHeader(decodedHeader);
    if (!params || params->count("username") == 0 || params->count("uri") == 0) {
        return DigestAnswerFault::malformed;
    }
    if (params->at("uri") != decodedTarget) {
        return DigestAnswerFault::otherTarget;
    }
    (*params)["uri"] = sentTarget;
    rebuilt = "Digest ";
    for (const auto& [name, value] : *params) {
        // RFC 7616 sends these two as tokens; everything else is quoted.
        const bool token = (name == "nc" || name == "qop") && !value.empty() &&
                           value.find_first_not_of(kTokenChars) == std::string::npos;
        rebuilt += (rebuilt.size() > 7 ? ", " : "") + name + "=" + (token ? value : quoted(value));
    }
    userName = params->at("username");
    return digestParameter(rebuilt, "username") == userName ? DigestAnswerFault::none : DigestAnswerFault::malformed;
}

}  // namespace gatewayd
