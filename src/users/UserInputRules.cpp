#include "users/UserInputRules.h"

#include "frame/FieldText.h"
#include "kmt.h"

namespace ZQTELMIMgrBus {

bool isAcceptableUserName(CInstanceMgr& mgr, const std::string& userName) {
    return isNonEmptyWithin(userName, kMaxUserNameLength) &&
           KMT_Strncmp(userName.c_str(), kGatewayUserName, static_cast<int>(kMaxUserNameLength)) != 0 &&
           mgr.checkNameChar(userName.data(), static_cast<int>(userName.size())) != 0;
}

}  // namespace ZQTELMIMgrBus
