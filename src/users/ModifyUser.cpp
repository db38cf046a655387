#include "frame/CInstanceMgr.h"
#include "frame/FieldText.h"
#include "frame/Log.h"
#include "frame/ResultCode.h"
#include "users/StoreUserRecord.h"
#include "users/UserInputRules.h"

namespace ZQTELMIMgrBus {

// A full rewrite of the account: the password is always required and the digest recomputed
// with the current realm. The device may change to any unbound one, or stay the same.
int CInstanceMgr::modUser(const std::string& userIndex, const tagTELMIUserInput& user) {
    const std::string userName = fieldText(user.userName);
    const std::string deviceID = fieldText(user.deviceID);
    const std::string password = fieldText(user.password);
    if (!isAcceptableUserName(*this, userName) || userIndex.size() != kStoreIndexLength ||
        !isNonEmptyWithin(deviceID, kMaxDeviceIdLength) || !isNonEmptyWithin(password, kMaxPasswordLength)) {
        return kBadArgument;
    }
    const auto account = ZQ_DeviceMgr_GetTELMIUser(userIndex);
    if (!account) {
        return kBadArgument;
    }
    const std::string currentDeviceIndex = account->getDeviceIndex();

    std::string deviceIndex;
    const int bound = checkBoundDevice(deviceIndex, deviceID, ZQConfigMgr::userMode);
    if (bound != kOk) {
        ZQ_LOG(kLogWarn, "checkBoundDevice failed.");
        // Bound to this very account: it keeps its device.
        if (bound != kDeviceBound || deviceIndex != currentDeviceIndex) {
            return bound;
        }
    }
    std::string digestHA1;
    const int checked = checkPassword(digestHA1, password, userName);
    if (checked != kOk) {
        ZQ_LOG(kLogError, "checkPassword failed");
        return checked;
    }
    const int modified = ZQ_DeviceMgr_ModifyTELMIUser(userIndex, makeStoreUserRecord(userName, digestHA1, deviceIndex));
    if (modified != kOk) {
        ZQ_LOG(kLogError, "mod TELMI User failed.");
        return modified;
    }
    return kOk;
}

}  // namespace ZQTELMIMgrBus
