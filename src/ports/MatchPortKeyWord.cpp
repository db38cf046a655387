#include "frame/CInstanceMgr.h"
#include "frame/DeviceAccessId.h"
#include "frame/Log.h"
#include "frame/ResultCode.h"
#include "kmt.h"

namespace ZQTELMIMgrBus {

namespace {
bool containsIgnoringCase(const std::string& text, const char* keyWord) {
    return KMT_Strcasestr(text.c_str(), keyWord) != nullptr;
}
}  // namespace

// A binding has no name of its own: its device's name and access ID are searched, in any case.
int CInstanceMgr::matchKeyWord(const std::shared_ptr<ZQDeviceMgr::CTELMIPort>& port, const char* keyWord) {
    if (!port || keyWord == nullptr) {
        return kBadArgument;
    }
    const std::string deviceIndex = port->getDeviceIndex();
    const auto device = ZQ_DeviceMgr_GetDevice(deviceIndex);
    if (!device) {
        ZQ_LOG(kLogWarn, "[devIndex=%s]ZQ_DeviceMgr_GetDevice failed.", deviceIndex.c_str());
        return kDeviceMissing;
    }
    if (containsIgnoringCase(device->getDeviceName(), keyWord)) {
        return kOk;
    }
    const auto accessId = accessIdOf(*device);
    return accessId && containsIgnoringCase(*accessId, keyWord) ? kOk : kNoMatch;
}

}  // namespace ZQTELMIMgrBus
