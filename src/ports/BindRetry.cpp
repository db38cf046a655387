#include "ZQBase.h"
#include "frame/CInstanceMgr.h"
#include "frame/FieldText.h"
#include "frame/Log.h"
#include "frame/ResultCode.h"
#include "kmt.h"
#include "listeners/PortProbe.h"

namespace ZQTELMIMgrBus {

namespace {

// nginx gets about 50 seconds to listen after a restart: 500 probes, 100 ms apart, each using
// 10 of the budget.
constexpr int kListenWaitBudget = 5000;
constexpr int kBudgetPerProbe = 10;
constexpr int kProbeIntervalMs = 100;

}  // namespace

// Runs without telmiMutex: the wait for nginx must not hold up binding and unbinding.
int CInstanceMgr::bindRetry(tagBindPortRet& ret, const std::string& portIndex) {
    if (!isNonEmptyWithin(portIndex, kStoreIndexLength)) {
        return kBadArgument;
    }
    ret.port.reset();
    ZQ_DeviceMgr_GetTELMIPort(ret.port, portIndex);
    if (!ret.port) {
        return kNoSuchBinding;
    }
    const std::shared_ptr<ZQDeviceMgr::CTELMIPort> port = ret.port;
    ret.resultCode = kOk;

    const unsigned short rtspPort = port->getRtspPort();
    if (rtspPort != 0) {
        int listening = 0;
        ret.resultCode = retryMediaTELMIPort(listening, port->getDeviceIndex(), rtspPort);
        if (ret.resultCode != kOk) {
            ZQ_LOG(kLogWarn, "[Rtspport=%d] notify retry port listen fail.", rtspPort);
        } else {
            port->setRtspPortStatus(listening);
        }
    }

    int httpPort = port->getHttpPort();
    std::list<int> nginxPids;
    if (getNginxPidList(nginxPids) == kNotDone) {
        ret.resultCode = kServiceFailed;
        return kOk;
    }
    if (!portInUse(httpPort)) {
        auto* nginx = ZQBase::CNginxOper::getInstance();
        if (nginx->ModifyConfig(ZQBase::addListenPort, &httpPort, nullptr) == 0) {
            ZQ_LOG(kLogWarn, "[httpport=%d] nginx del add port listen fail.", httpPort);
            ret.resultCode = kNginxAddFailed;
            return kOk;
        }
        if (nginx->Reboot() == 0) {
            ZQ_LOG(kLogError, "nginx reboot fail.");
            ret.resultCode = kNginxRestartFailed;
            return kOk;
        }
        int leftTime = kListenWaitBudget;
        while (leftTime > 0) {
            KMT_Sleep(kProbeIntervalMs);
            if (portInUse(httpPort)) {
                break;
            }
            leftTime -= kBudgetPerProbe;
        }
        if (leftTime <= 0) {
            ZQ_LOG(kLogWarn, "[httpport=%d, leftTime=%d]Port is not occupied by nginx.", httpPort, leftTime);
            port->setHttpPortStatus(0);
            ret.resultCode = kServiceFailed;
            return kOk;
        }
        // The restarted nginx has new processes; the ids read before the restart stay in the list.
        if (getNginxPidList(nginxPids) == kNotDone) {
            ret.resultCode = kServiceFailed;
            return kOk;
        }
    }
    if (portHeldByOtherProgram(nginxPids, httpPort)) {
        ZQ_LOG(kLogError, "[httpport=%d]Port is occupied by other exe.", httpPort);
        port->setHttpPortStatus(0);
        ret.resultCode = kPortNotListening;
        return kOk;
    }
    // nginx holds the port: the result stays what the RTSP retry made it.
    port->setHttpPortStatus(1);
    return kOk;
}

}  // namespace ZQTELMIMgrBus
