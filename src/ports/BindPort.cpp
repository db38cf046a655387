#include "ZQBase.h"
#include "frame/CInstanceMgr.h"
#include "frame/FieldText.h"
#include "frame/Log.h"
#include "frame/ResultCode.h"
#include "listeners/MediaPortOrder.h"

namespace ZQTELMIMgrBus {

namespace {

// Only the store record is withdrawn after a later step fails; listeners already opened stay.
void removeStoredBinding(const tagBindPortRet& ret) {
    if (ret.port) {
        ZQ_DeviceMgr_UnbindTELMIPort(ret.port->getPortIndex());
    }
}

}  // namespace

// Per device: device store, then media module, then nginx; nginx restarts once after the batch.
int CInstanceMgr::bindPort(std::vector<tagBindPortRet>& rets, const std::vector<std::string>& deviceIds) {
    KMT_Guard guard(&telmiMutex);
    ZQ_LOG(kLogTrace, "bindPort start.");
    auto* nginx = ZQBase::CNginxOper::getInstance();
    bool rebootNeeded = false;
    for (const std::string& deviceId : deviceIds) {
        rets.emplace_back();
        tagBindPortRet& ret = rets.back();
        if (!isNonEmptyWithin(deviceId, kMaxDeviceIdLength)) {
            ret.resultCode = kBadArgument;
            continue;
        }
        std::string deviceIndex;
        ret.resultCode = checkBoundDevice(deviceIndex, deviceId, ZQConfigMgr::portMode);
        if (ret.resultCode != kOk) {
            ZQ_LOG(kLogError, "[devId=%s]checkBoundDevice failed.", deviceId.c_str());
            continue;
        }
        unsigned short httpPort = 0;
        unsigned short rtspPort = 0;
        if (getHttpPort(&httpPort) == 0 || getRtspPort(&rtspPort) == 0) {
            ZQ_LOG(kLogError, "[devId=%s]get free port failed.", deviceId.c_str());
            ret.resultCode = kNoFreePort;
            continue;
        }
        ZQDeviceMgr::tagTELMIPort request;
        request.httpPort = httpPort;
        request.rtspPort = rtspPort;
        copyField(request.deviceIndex, deviceIndex, kStoreIndexLength);

        ret.resultCode = ZQ_DeviceMgr_BindTELMIPort(ret.port, request);
        if (ret.resultCode != kOk) {
            ZQ_LOG(kLogError, "[deviceId=%s,errCode=%d]ZQ_DeviceMgr_BindTELMIPort failed.", deviceId.c_str(),
                   ret.resultCode);
            continue;
        }
        if (notifyMediaTELMIPort({makeMediaPortOrder(deviceIndex, kOpenRtspListener, rtspPort)}) == kNotDone) {
            ZQ_LOG(kLogError, "[Rtspport=%d] notify add port listen fail.", rtspPort);
            removeStoredBinding(ret);
            ret.resultCode = kServiceFailed;
            continue;
        }
        // nginx reads the port from the request's first field, httpPort.
        if (nginx->ModifyConfig(ZQBase::addListenPort, &request, nullptr) == 0) {
            ZQ_LOG(kLogError, "[httpport=%d] nginx add port listen fail.", httpPort);
            removeStoredBinding(ret);
            ret.resultCode = kNginxAddFailed;
            continue;
        }
        rebootNeeded = true;
    }
    if (rebootNeeded && nginx->Reboot() == 0) {
        ZQ_LOG(kLogError, "nginx reboot fail when bind port.");
    }
    ZQ_LOG(kLogTrace, "bindPort end.");
    return kOk;
}

}  // namespace ZQTELMIMgrBus
