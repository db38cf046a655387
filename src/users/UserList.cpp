#include "frame/CInstanceMgr.h"
#include "frame/Log.h"
#include "frame/QueryPaging.h"
#include "frame/ResultCode.h"

namespace ZQTELMIMgrBus {

namespace {

using UserPtr = std::shared_ptr<ZQDeviceMgr::CTELMIUser>;

// Appends the accounts that match; those whose device has left the store are deleted.
void collectUsers(CInstanceMgr& mgr, std::vector<UserPtr>& matches, const char* keyWord) {
    std::vector<UserPtr> all;
    ZQ_DeviceMgr_GetAllTELMIUser(all);
    collectLiveMatches(
        all, matches, keyWord, [&mgr](const UserPtr& user, const char* word) { return mgr.matchKeyWord(user, word); },
        [](const UserPtr& user) { ZQ_DeviceMgr_DelTELMIUser(user->getUserIndex()); });
}

}  // namespace

int CInstanceMgr::queryUserList(std::vector<UserPtr>& users, tagTelmiQueryRsp& rsp, const tagTelmiQueryReq& req) {
    ZQ_LOG(kLogTrace, "Query user List start");
    const PageOutcome outcome = queryPage(
        users, rsp, req, [this, &req](std::vector<UserPtr>& matches) { collectUsers(*this, matches, req.keyWord); },
        sortByUserAddtime);
    if (outcome == PageOutcome::badRequest) {
        return kBadArgument;
    }
    if (outcome == PageOutcome::beyondEnd) {
        return kOk;
    }
    ZQ_LOG(kLogTrace, "Query user List end");
    return kOk;
}

// Oldest first, as far as the store's add-time text sorts chronologically byte by byte.
int CInstanceMgr::sortByUserAddtime(UserPtr a, UserPtr b) { return a->getAddTime() < b->getAddTime(); }

}  // namespace ZQTELMIMgrBus
