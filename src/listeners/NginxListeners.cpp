// nginx's listening ports for the bound HTTP ports, and whether nginx really holds them.
#include "ZQBase.h"
#include "frame/CInstanceMgr.h"
#include "frame/Log.h"
#include "frame/ResultCode.h"
#include "listeners/MediaPortOrder.h"
#include "listeners/PortProbe.h"

namespace ZQTELMIMgrBus {

int CInstanceMgr::getNginxPidList(std::list<int>& pids) {
    std::vector<int> running;
    if (ZQBase::CNginxOper::getInstance()->getPid(running) == 0) {
        ZQ_LOG(kLogError, "Get nginx Pid list failed");
        return kNotDone;
    }
    // Appended, not replaced: bindRetry reads the list twice and tests against both reads.
    for (int pid : running) {
        ZQ_LOG(kLogDetail, "Nginx pid=%d", pid);
        pids.push_back(pid);
    }
    return kDone;
}

int CInstanceMgr::notifyAllTELMIPort() {
    std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> ports;
    ZQ_DeviceMgr_GetAllTELMIPort(ports);

    std::vector<MediaPortInfo> rtspOrders;
    std::vector<int> httpPorts;
    for (const auto& port : ports) {
        if (port->getRtspPort() != 0) {
            rtspOrders.push_back(makeMediaPortOrder(port->getDeviceIndex(), kOpenRtspListener, port->getRtspPort()));
        }
        httpPorts.push_back(port->getHttpPort());
    }
    if (notifyMediaTELMIPort(rtspOrders) == kNotDone) {
        ZQ_LOG(kLogWarn, "notifyMediaTELMIPort failed");
    }

    auto* nginx = ZQBase::CNginxOper::getInstance();
    std::list<int> pids;
    if (getNginxPidList(pids) == kDone && !pids.empty()) {
        ZQ_LOG(kLogWarn, "Get nginx Pid list success, then quit old nginx.");
        nginx->Quit();
    }

    // The old nginx has been told to quit, so a port still in use belongs to another program.
    for (int httpPort : httpPorts) {
        if (portInUse(httpPort)) {
            ZQ_LOG(kLogWarn, "[httpport=%d] Port is abnormal.", httpPort);
            if (nginx->ModifyConfig(ZQBase::delListenPort, &httpPort, nullptr) == 0) {
                ZQ_LOG(kLogWarn, "[httpport=%d] nginx del port listen fail.", httpPort);
            }
        } else {
            ZQ_LOG(kLogDetail, "[httpport=%d] notifyTELMIPort", httpPort);
            if (nginx->ModifyConfig(ZQBase::addListenPort, &httpPort, nullptr) == 0) {
                ZQ_LOG(kLogWarn, "[httpport=%d] nginx add port listen fail.", httpPort);
            }
        }
    }
    return kDone;
}

int CInstanceMgr::updateNgixTELMIPortStatus(std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>>& ports) {
    ZQ_LOG(kLogDetail, "start updateHttpStatus,portsize=%d", static_cast<int>(ports.size()));
    if (ports.empty()) {
        return kDone;
    }
    std::list<int> pids;
    if (getNginxPidList(pids) == kNotDone) {
        return kServiceFailed;
    }
    for (auto& port : ports) {
        const int httpPort = port->getHttpPort();
        const bool nginxListens = portInUse(httpPort) && !portHeldByOtherProgram(pids, httpPort);
        port->setHttpPortStatus(nginxListens ? 1 : 0);
    }
    return kOk;
}

}  // namespace ZQTELMIMgrBus
