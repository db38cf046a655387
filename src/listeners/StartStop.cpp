#include "frame/CInstanceMgr.h"
#include "frame/Log.h"
#include "frame/ResultCode.h"

namespace ZQTELMIMgrBus {

int CInstanceMgr::start() {
    if (notifyAllTELMIPort() == kNotDone) {
        ZQ_LOG(kLogWarn, "notifyAllTELMIPort failed");
    }
    ZQ_DeviceMgr_NotifyAttach(devChangeCB, this);
    return kDone;
}

// Only the callback goes: ports, nginx and the media module stay as they are.
int CInstanceMgr::stop() {
    ZQ_DeviceMgr_NotifyDetach(devChangeCB);
    return kDone;
}

}  // namespace ZQTELMIMgrBus
