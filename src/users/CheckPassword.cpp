#include <cstdio>
#include <cstring>

#include "ZQBase.h"
#include "frame/CInstanceMgr.h"
#include "frame/FieldText.h"
#include "frame/Log.h"
#include "frame/ResultCode.h"
#include "users/UserInputRules.h"

namespace ZQTELMIMgrBus {

namespace {
constexpr int kLevelUnrated = -1;
constexpr int kLevelTooWeak = 0;
}  // namespace

// Produces the HTTP Digest HA1 (RFC 2617) over the gateway's realm, so the plain password is
// never stored; the digest check compares in the same lower-case hex form.
int CInstanceMgr::checkPassword(std::string& digestHA1, const std::string& password, const std::string& userName) {
    if (!isNonEmptyWithin(password, kMaxPasswordLength) || !isNonEmptyWithin(userName, kMaxUserNameLength)) {
        return kBadArgument;
    }
    const int level = ZQ_BASE_GetPasswrodLevel(password.c_str(), userName.c_str());
    if (level == kLevelUnrated) {
        return kPasswordUnrated;
    }
    if (level == kLevelTooWeak) {
        return kPasswordTooWeak;
    }
    const auto userCfg = ZQ_ConfigMgr_GetUserCfg();
    if (!userCfg) {
        ZQ_LOG(kLogError, "ZQ_ConfigMgr_GetUserCfg failed.");
        return kServiceFailed;
    }
    char credentials[256] = {};
    std::snprintf(credentials, sizeof(credentials), "%s:%s:%s", userName.c_str(), userCfg->getRealm().c_str(),
                  password.c_str());
    char hash[65] = {};
    mprGetMD5Hash(reinterpret_cast<const unsigned char*>(credentials), static_cast<int>(std::strlen(credentials)),
                  hash);
    digestHA1 = fieldText(hash);
    return kOk;
}

}  // namespace ZQTELMIMgrBus
