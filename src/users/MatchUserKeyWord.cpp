#include "frame/CInstanceMgr.h"
#include "frame/DeviceKeyWord.h"
#include "frame/ResultCode.h"
#include "kmt.h"

namespace ZQTELMIMgrBus {

// Searches, case-sensitively, the account's name, then its device's name and access ID.
int CInstanceMgr::matchKeyWord(const std::shared_ptr<ZQDeviceMgr::CTELMIUser>& user, const char* keyWord) {
    if (!user || keyWord == nullptr) {
        return kBadArgument;
    }
    if (KMT_Strstr(user->getUserName().c_str(), keyWord) != nullptr) {
        return kOk;
    }
    return matchDeviceKeyWord(user->getDeviceIndex(), keyWord, KMT_Strstr, __func__);
}

}  // namespace ZQTELMIMgrBus
