#include "frame/CInstanceMgr.h"
#include "frame/FieldText.h"
#include "frame/Log.h"
#include "frame/ResultCode.h"
#include "users/StoreUserRecord.h"
#include "users/UserInputRules.h"

namespace ZQTELMIMgrBus {

// Each account stands alone: its outcome is appended whatever it is, and the batch goes on.
int CInstanceMgr::addUser(std::vector<ZQDeviceMgr::tagAddUserRet>& results,
                          const std::vector<tagTELMIUserInput>& users) {
    for (const tagTELMIUserInput& input : users) {
        const tagTELMIUserInput user = input;
        results.emplace_back();
        ZQDeviceMgr::tagAddUserRet& ret = results.back();

        const std::string userName = fieldText(user.userName);
        if (!isAcceptableUserName(*this, userName)) {
            ret.result = kBadArgument;
            continue;
        }
        ZQ_LOG(kLogDetail, "checkBoundDevice start");
        std::string deviceIndex;
        ret.result = checkBoundDevice(deviceIndex, fieldText(user.deviceID), ZQConfigMgr::userMode);
        if (ret.result != kOk) {
            ZQ_LOG(kLogError, "checkBoundDevice failed.");
            continue;
        }
        ZQ_LOG(kLogDetail, "checkBoundDevice stop");
        std::string digestHA1;
        ret.result = checkPassword(digestHA1, fieldText(user.password), userName);
        if (ret.result != kOk) {
            ZQ_LOG(kLogError, "checkPassword failed.");
            continue;
        }
        ret.result = ZQ_DeviceMgr_AddTELMIUser(ret.user, makeStoreUserRecord(userName, digestHA1, deviceIndex));
        if (ret.result != kOk) {
            ZQ_LOG(kLogError, "addUser failed.");
        }
    }
    return kOk;
}

}  // namespace ZQTELMIMgrBus
