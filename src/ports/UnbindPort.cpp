#include "ZQBase.h"
#include "frame/CInstanceMgr.h"
#include "frame/FieldText.h"
#include "frame/Log.h"
#include "frame/ResultCode.h"
#include "listeners/MediaPortOrder.h"

namespace ZQTELMIMgrBus {

// Per binding: media module, then nginx, then device store; nginx restarts once after the batch,
// when at least one binding left the store.
int CInstanceMgr::unbindPort(std::vector<int>& results, const std::vector<std::string>& portIndexes) {
    KMT_Guard guard(&telmiMutex);
    ZQ_LOG(kLogTrace, "unbindPort start.");
    auto* nginx = ZQBase::CNginxOper::getInstance();
    bool rebootNeeded = false;
    for (const std::string& portIndex : portIndexes) {
        results.push_back(kOk);
        int& result = results.back();
        if (!isNonEmptyWithin(portIndex, kStoreIndexLength)) {
            result = kBadArgument;
            continue;
        }
        std::shared_ptr<ZQDeviceMgr::CTELMIPort> port;
        ZQ_DeviceMgr_GetTELMIPort(port, portIndex);
        if (!port) {
            result = kNoSuchBinding;
            continue;
        }
        const std::string deviceIndex = port->getDeviceIndex();
        const unsigned short rtspPort = port->getRtspPort();
        if (rtspPort != 0 &&
            notifyMediaTELMIPort({makeMediaPortOrder(deviceIndex, kCloseRtspListener, rtspPort)}) == kNotDone) {
            // The RTSP listener still runs, so the binding stays whole.
            ZQ_LOG(kLogError, "[Rtspport=%d] notify del port listen fail.", rtspPort);
            result = kServiceFailed;
            continue;
        }
        int httpPort = port->getHttpPort();
        if (nginx->ModifyConfig(ZQBase::delListenPort, &httpPort, nullptr) == 0) {
            ZQ_LOG(kLogWarn, "[httpport=%d] nginx del port listen fail.", httpPort);
        }
        result = ZQ_DeviceMgr_UnbindTELMIPort(portIndex);
        rebootNeeded = rebootNeeded || result == kOk;
    }
    if (rebootNeeded && nginx->Reboot() == 0) {
        ZQ_LOG(kLogError, "nginx reboot fail when bind port.");
    }
    ZQ_LOG(kLogTrace, "unbindPort end.");
    return kOk;
}

}  // namespace ZQTELMIMgrBus
