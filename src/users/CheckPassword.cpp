#include <cstring>

#include "ZQBase.h"
#include "frame/CInstanceMgr.h"
#include "frame/FieldText.h"
#include "frame/Log.h"
#include "frame/Realm.h"
#include "frame/ResultCode.h"
#include "users/UserInputRules.h"

namespace ZQTELMIMgrBus {

namespace {
constexpr int kLevelUnrated = -1;
constexpr int kLevelTooWeak = 0;
}  // namespace

// Produces the HTTP Digest HA1 (RFC 2617) over the gateway's realm, so the plain password is
// never stored; the digest check compares in the same lower-case hex form. The HA1 input is as
// long as the realm needs: a realm cut short would give a digest no client can ever match.
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
    const std::string realm = userCfg->getRealm();
    if (realm.size() > kMaxRealmLength) {
        ZQ_LOG(kLogError, "[realm length=%d]The realm is too long for a challenge.", static_cast<int>(realm.size()));
        return kServiceFailed;
    }
    const std::string credentials = userName + ":" + realm + ":" + password;
    char hash[65] = {};
    mprGetMD5Hash(reinterpret_cast<const unsigned char*>(credentials.data()), static_cast<int>(credentials.size()),
                  hash);
    digestHA1 = fieldText(hash);
    return kOk;
}

}  // namespace ZQTELMIMgrBus
