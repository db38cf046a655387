#include "DigestChallenge.h"

#include <strings.h>

#include <vector>

#include "ZQBase.h"
#include "ZQConfigMgr.h"

namespace gatewayd {
namespace {

constexpr int kNonceBuffer = 64;
constexpr int kParameterBuffer = 512;

}  // namespace

std::string digestChallenge(bool stale, const std::string& realm) {
    char nonce[kNonceBuffer] = {};
    const auto userCfg = ZQ_ConfigMgr_GetUserCfg();
    if (CreateNonce(nonce, sizeof(nonce)) != 0 || userCfg == nullptr) {
        return "";
    }
    return "Digest qop=\"auth\", realm=\"" + (realm.empty() ? userCfg->getRealm() : realm) + "\", nonce=\"" + nonce +
           "\", stale=\"" + (stale ? "TRUE" : "FALSE") + "\"";
}

std::string digestParameter(const std::string& header, const char* name) {
    std::vector<char> value(kParameterBuffer, '\0');
    const std::string begin = std::string(name) + "=\"";
    return GetMiddleString(header.c_str(), static_cast<int>(header.size()), begin.c_str(), "\"", value.data(),
                           kParameterBuffer) != 0
               ? std::string(value.data())
               : std::string();
}

bool isDigestHeader(const std::string& header) {
    return header.size() > 7 && ::strncasecmp(header.c_str(), "Digest ", 7) == 0;
}

}  // namespace gatewayd
