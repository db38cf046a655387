#include "frame/CInstanceMgr.h"
#include "frame/DeviceAccessId.h"
#include "frame/Log.h"
#include "frame/ResultCode.h"
#include "kmt.h"

namespace ZQTELMIMgrBus {

namespace {
bool contains(const std::string& text, const char* keyWord) { return KMT_Strstr(text.c_str(), keyWord) != nullptr; }
}  // namespace

// Searches, case-sensitively, the account's name, then its device's name and access ID.
int CInstanceMgr::matchKeyWord(const std::shared_ptr<ZQDeviceMgr::CTELMIUser>& user, const char* keyWord) {
    if (!user || keyWord == nullptr) {
        return kBadArgument;
    }
    if (contains(user->getUserName(), keyWord)) {
        return kOk;
    }
    const std::string deviceIndex = user->getDeviceIndex();
    const auto device = ZQ_DeviceMgr_GetDevice(deviceIndex);
    if (!device) {
        ZQ_LOG(kLogWarn, "[devIndex=%s]ZQ_DeviceMgr_GetDevice failed.", deviceIndex.c_str());
        return kDeviceMissing;
    }
    if (contains(device->getDeviceName(), keyWord)) {
        return kOk;
    }
    const auto accessId = accessIdOf(*device);
    return accessId && contains(*accessId, keyWord) ? kOk : kNoMatch;
}

}  // namespace ZQTELMIMgrBus
