#include "frame/CInstanceMgr.h"
#include "frame/Log.h"
#include "frame/ResultCode.h"

namespace ZQTELMIMgrBus {

namespace {

enum DeviceCategory : uint8_t { kCategoryWithRtsp = 1, kCategoryWithoutRtsp = 2 };

}  // namespace

int CInstanceMgr::checkNeedRstpPort(int& need, const std::string& devIndex) {
    need = 0;
    const auto device = ZQ_DeviceMgr_GetDevice(devIndex);
    if (!device) {
        ZQ_LOG(kLogError, "[devIndex=%s]ZQ_DeviceMgr_GetDevice failed.", devIndex.c_str());
        return kDeviceMissing;
    }
    const uint8_t category = device->getCategory();
    switch (category) {
        case kCategoryWithRtsp: need = 1; return kOk;
        case kCategoryWithoutRtsp: return kOk;
        default:
            ZQ_LOG(kLogError, "[DeviceID=%s,Category=%d] Not support device category.",
                   device->getTarn5DeviceID().c_str(), category);
            return kNotFound;
    }
}

}  // namespace ZQTELMIMgrBus
