// The WWW-Authenticate challenge sent back with a refused TELMI request.
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

    // Without the user configuration the client is still refused, and a challenge with an empty
    // realm lets the front end answer properly rather than fail the request outright.
    const auto userCfg = ZQ_ConfigMgr_GetUserCfg();
    const std::string realm = userCfg ? userCfg->getRealm() : std::string();
    // Sized to its parts, so the realm reaches the client whole; the response field bounds it.
    head = "Digest qop=\"auth\", realm=\"" + realm + "\", nonce=\"" + nonceText +
           (stale ? "\", stale=\"TRUE\"" : "\", stale=\"FALSE\"");
    return 0;
}

}  // namespace ZQTELMIMgrBus
