#include "frame/DeviceKeyWord.h"

#include "ZQDeviceMgr.h"
#include "frame/DeviceAccessId.h"
#include "frame/Log.h"
#include "frame/ResultCode.h"

namespace ZQTELMIMgrBus {

int matchDeviceKeyWord(const std::string& deviceIndex, const char* keyWord, TextFind find, const char* member) {
    const auto device = ZQ_DeviceMgr_GetDevice(deviceIndex);
    if (!device) {
        ZQ_LOG_AS(member, kLogWarn, "[devIndex=%s]ZQ_DeviceMgr_GetDevice failed.", deviceIndex.c_str());
        return kDeviceMissing;
    }
    if (find(device->getDeviceName().c_str(), keyWord) != nullptr) {
        return kOk;
    }
    const auto accessId = accessIdOf(*device);
    return accessId && find(accessId->c_str(), keyWord) != nullptr ? kOk : kNoMatch;
}

}  // namespace ZQTELMIMgrBus
