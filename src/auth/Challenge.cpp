// The WWW-Authenticate challenge sent back with a refused TELMI request.
#include <cstdio>
#include <cstring>
#include <string>

#include "ZQBase.h"
#include "ZQConfigMgr.h"
#include "frame/CInstanceMgr.h"

namespace ZQTELMIMgrBus {

int CInstanceMgr::buildUnauthorHead(std::string& head, int stale) {
    char nonce[64] = {};
    CreateNonce(nonce, sizeof(nonce));
    // The base library may fill the whole buffer; never read past it.
    const std::string nonceText(nonce, strnlen(nonce, sizeof(nonce)));

    char text[256] = {};
    // Without the user configuration the client is still refused, and a challenge with an empty
    // realm lets the front end answer properly rather than fail the request outright.
    const auto userCfg = ZQ_ConfigMgr_GetUserCfg();
    const std::string realm = userCfg ? userCfg->getRealm() : std::string();
    // A long realm is cut at the buffer's end rather than overrunning it.
    std::snprintf(text, sizeof(text),
                  stale ? "Digest qop=\"auth\", realm=\"%s\", nonce=\"%s\", stale=\"TRUE\""
                        : "Digest qop=\"auth\", realm=\"%s\", nonce=\"%s\", stale=\"FALSE\"",
                  realm.c_str(), nonceText.c_str());
    head = text;
    return 0;
}

}  // namespace ZQTELMIMgrBus
