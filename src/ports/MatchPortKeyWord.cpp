#include "frame/CInstanceMgr.h"
#include "frame/DeviceKeyWord.h"
#include "frame/ResultCode.h"
#include "kmt.h"

namespace ZQTELMIMgrBus {

// A binding has no name of its own: its device's name and access ID are searched, in any case.
int CInstanceMgr::matchKeyWord(const std::shared_ptr<ZQDeviceMgr::CTELMIPort>& port, const char* keyWord) {
    if (!port || keyWord == nullptr) {
        return kBadArgument;
    }
    return matchDeviceKeyWord(port->getDeviceIndex(), keyWord, KMT_Strcasestr, __func__);
}

}  // namespace ZQTELMIMgrBus
