#include "frame/CInstanceMgr.h"

#include "frame/Log.h"
#include "frame/ResultCode.h"

namespace ZQTELMIMgrBus {

CInstanceMgr::CInstanceMgr() : telmiMutex(0) {}

int CInstanceMgr::getProtocolEnable() { return ZQ_ConfigMgr_GetTELMICfg()->getTELMIParam(); }

int CInstanceMgr::setProtocolEnable(int enable) {
    if (ZQ_ConfigMgr_GetTELMICfg()->getTELMIParam() == enable) {
        return kOk;
    }
    if (ZQ_ConfigMgr_GetTELMICfg()->setTELMIParam(enable) != 0) {
        ZQ_LOG(kLogError, "setTELMIParam failed");
        return kConfigRefused;
    }
    return kOk;
}

}  // namespace ZQTELMIMgrBus
