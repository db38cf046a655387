// Digest check of an incoming TELMI request: in user mode against the account named in the
// header, in port mode against the gateway's own "admin" credentials on the binding of the port
// the request came in on. Failures are counted per requester on the matched record, and a
// requester with too many is refused without its credentials being looked at.
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "ZQBase.h"
#include "ZQConfigMgr.h"
#include "ZQDeviceMgr.h"
#include "frame/CInstanceMgr.h"
#include "frame/FieldText.h"
#include "frame/Log.h"
#include "frame/Realm.h"
#include "frame/ResultCode.h"
#include "kmt.h"

namespace ZQTELMIMgrBus {
namespace {

constexpr int kLockThreshold = 7;      // failures that lock a requester out
constexpr int kScanLimit = 5120;       // header bytes searched for the user name
constexpr int kNameOutLimit = 481;     // output limit handed to the user-name extraction
constexpr size_t kMaxNameLength = 33;  // the longest name an account can carry
constexpr int kStaleNonce = -2;        // ZQ_BASE_CheckDigest: right answer to an expired nonce
constexpr const char* kGatewayUser = "admin";

void copyChallenge(CInstanceMgr& mgr, tagTelmiAuthRsp& rsp, int stale) {
    std::string head;
    mgr.buildUnauthorHead(head, stale);
    copyField(rsp.challenge, head, kChallengeChars);
}

int refuse(CInstanceMgr& mgr, tagTelmiAuthRsp& rsp, int stale, int leftTryNum, int remainLockTime) {
    rsp.leftTryNum = leftTryNum;
    rsp.remainLockTime = remainLockTime;
    copyChallenge(mgr, rsp, stale);
    return kDigestFailed;
}

// The requester's lock-out state on one user or port record. The store keeps one slot for the
// failure count and another for the unlock time and the reset; both start at 0 for each check.
struct LockState {
    int countSlot = 0;
    int timeSlot = 0;
    int count = 0;
    int unlockTime = 0;

    bool locked() const { return count >= kLockThreshold && unlockTime != 0; }
};

template <class Record>
LockState readLockState(Record& record, const std::string& lockKey) {
    LockState state;
    state.count = record.getLockNum(state.countSlot, lockKey.c_str(), 0);
    state.unlockTime = record.getUnlockTime(state.timeSlot, lockKey.c_str());
    return state;
}

// Acts on the base library's verdict for the matched record.
template <class Record>
int settleVerdict(CInstanceMgr& mgr, tagTelmiAuthRsp& rsp, Record& record, LockState& state, const std::string& lockKey,
                  int verdict) {
    if (verdict == 0) {
        record.destroyLock(state.timeSlot, lockKey.c_str());
        copyField(rsp.deviceIndex, record.getDeviceIndex(), kStoreIndexLength);
        return kOk;
    }
    if (verdict == kStaleNonce) {
        return refuse(mgr, rsp, 1, kLockThreshold - state.count, state.unlockTime);
    }
    // Left tries may go negative once the store stops reporting a lock; that is reported as is.
    const int failures = record.getLockNum(state.countSlot, lockKey.c_str(), 1);
    return refuse(mgr, rsp, 0, kLockThreshold - failures, state.unlockTime);
}

}  // namespace

int CInstanceMgr::checkDigest(tagTelmiAuthRsp& rsp, const std::string& method, const tagTELMIAuthReq& req,
                              ZQConfigMgr::TELMIMode mode) {
    const std::string authHeader = fieldText(req.authHeader);
    const std::string lockKey = fieldText(req.lockKey);

    if (mode == ZQConfigMgr::userMode) {
        // The extraction is told 481 bytes, so the buffer holds that many; account names are
        // at most 33 characters, so a longer name in the header matches no account.
        char name[kNameOutLimit] = {};
        if (GetMiddleString(authHeader.c_str(), kScanLimit, "username=\"", "\"", name, kNameOutLimit) == 0) {
            copyChallenge(*this, rsp, 0);
            return kBadArgument;
        }
        const std::string userName(name, strnlen(name, sizeof(name)));

        std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIUser>> users;
        ZQ_DeviceMgr_GetAllTELMIUser(users);
        const auto user = std::find_if(users.begin(), users.end(), [&userName](const auto& candidate) {
            return userName.size() <= kMaxNameLength && candidate->getUserName() == userName;
        });
        if (user == users.end()) {
            ZQ_LOG(kLogError, "TELMI user is not exist.");
            return kNotFound;
        }

        LockState state = readLockState(**user, lockKey);
        if (state.locked()) {
            return refuse(*this, rsp, 0, 0, state.unlockTime);
        }
        const int verdict =
            ZQ_BASE_CheckDigest(method.c_str(), authHeader.c_str(), (*user)->getDigestPassword().c_str());
        return settleVerdict(*this, rsp, **user, state, lockKey, verdict);
    }

    if (mode == ZQConfigMgr::portMode) {
        if (req.httpPort == 0) {
            ZQ_LOG(kLogError, "[httpPort=%d]TELMI port is error.", req.httpPort);
            return kBadArgument;
        }

        std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> ports;
        ZQ_DeviceMgr_GetAllTELMIPort(ports);
        const auto port = std::find_if(ports.begin(), ports.end(), [&req](const auto& candidate) {
            return candidate->getHttpPort() == req.httpPort;
        });
        if (port == ports.end()) {
            ZQ_LOG(kLogError, "[httpPort=%d]TELMI port is not exist.", req.httpPort);
            return kNotFound;
        }

        LockState state = readLockState(**port, lockKey);
        if (state.locked()) {
            return refuse(*this, rsp, 0, 0, state.unlockTime);
        }
        const auto userCfg = ZQ_ConfigMgr_GetUserCfg();
        if (!userCfg) {
            // Without the gateway's credentials nothing can be verified. The client is refused
            // with a fresh challenge, but the gateway's fault is not counted against it.
            ZQ_LOG(kLogError, "Get user config failed.");
            return refuse(*this, rsp, 0, kLockThreshold - state.count, state.unlockTime);
        }
        std::string ha1;
        userCfg->getDigestHA1(ha1, kGatewayUser);
        const int verdict = ZQ_BASE_CheckDigest(method.c_str(), authHeader.c_str(), ha1.c_str());
        return settleVerdict(*this, rsp, **port, state, lockKey, verdict);
    }

    ZQ_LOG(kLogError, "The mode is not support.");
    return kNotFound;
}

}  // namespace ZQTELMIMgrBus
