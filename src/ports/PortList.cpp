#include "frame/CInstanceMgr.h"
#include "frame/Log.h"
#include "frame/QueryPaging.h"
#include "frame/ResultCode.h"

namespace ZQTELMIMgrBus {

namespace {

using PortPtr = std::shared_ptr<ZQDeviceMgr::CTELMIPort>;

// Appends the bindings that match. Those whose device has left the store lose only their store
// record here; their listeners are left to unbindPort.
void collectPorts(CInstanceMgr& mgr, std::vector<PortPtr>& matches, const char* keyWord) {
    std::vector<PortPtr> all;
    ZQ_DeviceMgr_GetAllTELMIPort(all);
    collectLiveMatches(
        all, matches, keyWord, [&mgr](const PortPtr& port, const char* word) { return mgr.matchKeyWord(port, word); },
        [](const PortPtr& port) { ZQ_DeviceMgr_UnbindTELMIPort(port->getPortIndex()); });
}

}  // namespace

int CInstanceMgr::queryPortList(std::vector<PortPtr>& ports, tagTelmiQueryRsp& rsp, const tagTelmiQueryReq& req) {
    ZQ_LOG(kLogTrace, "Query port List start");
    const PageOutcome outcome = queryPage(
        ports, rsp, req, [this, &req](std::vector<PortPtr>& matches) { collectPorts(*this, matches, req.keyWord); },
        sortByPortAddtime);
    if (outcome == PageOutcome::badRequest) {
        return kBadArgument;
    }
    if (outcome == PageOutcome::beyondEnd) {
        return kOk;
    }
    // Only the returned page is refreshed; the results are not the query's concern.
    updateMediaTELMIPortStatus(ports);
    updateNgixTELMIPortStatus(ports);
    ZQ_LOG(kLogTrace, "Query Port List end");
    return kOk;
}

// Oldest first, as far as the store's add-time text sorts chronologically byte by byte.
int CInstanceMgr::sortByPortAddtime(PortPtr a, PortPtr b) { return a->getAddTime() < b->getAddTime(); }

}  // namespace ZQTELMIMgrBus
