#include "TelmiAdmission.h"

#include <cstring>
#include <memory>

#include "DigestAnswer.h"
#include "DigestChallenge.h"
#include "FixedField.h"
#include "GatewaydLog.h"
#include "JsonInput.h"
#include "LockKey.h"
#include "RequestScopeGuard.h"
#include "ZQBase.h"
#include "ZQGatewayDevices.h"
#include "ZQGatewayNginx.h"

namespace gatewayd {
namespace {

using ZQTELMIMgrBus::tagTELMIAuthReq;
using ZQTELMIMgrBus::tagTelmiAuthRsp;

constexpr int kDigestFailed = 1028;
constexpr int kBadArgument = 1;
constexpr int kNotFound = 274;
// An HA1 no account has: an unknown user name costs the same hashing as a wrong password, so
// the time of an answer tells nothing about which names exist.
constexpr const char* kNoAccountHA1 = "00000000000000000000000000000000";

void refuse(AdmissionAnswer& res, int status, const std::string& message, const std::string& challenge = "") {
    res.status = status;
    res.headers = {{"X-TELMI-Status", std::to_string(status)}, {"X-TELMI-Message", message}};
    if (!challenge.empty()) {
        res.headers.emplace_back("WWW-Authenticate", challenge);
    }
}

void admit(AdmissionAnswer& res, const std::string& deviceIndex) {
    const auto device = std::dynamic_pointer_cast<ZQGateway::CGatewayDevice>(ZQ_DeviceMgr_GetDevice(deviceIndex));
    if (device == nullptr) {
        refuse(res, 404, "the device is no longer attached to the gateway");
        return;
    }
    const std::string hostPort = ZQ_Gateway_TelmiHostPort(device->getTelmiAddress());
    if (hostPort.empty()) {
        refuse(res, 502, "the device has no usable TELMI address");
        return;
    }
    res.status = 204;
    res.headers = {{"X-TELMI-Upstream", ZQ_Gateway_DeviceUpstream(deviceIndex)}, {"X-TELMI-Device-Host", hostPort}};
}

// Port mode takes the gateway's own credential, which people look for among the TELMI users.
std::string authenticationRequired(ZQConfigMgr::TELMIMode mode) {
    return mode == ZQConfigMgr::portMode
               ? "authentication required as \"admin\" with the gateway's port-mode password (not a TELMI user)"
               : "authentication required";
}

std::string refusalMessage(const tagTelmiAuthRsp& rsp, ZQConfigMgr::TELMIMode mode) {
    if (rsp.leftTryNum <= 0) {
        // The time is the one read before this attempt: 0 when this very attempt locked.
        return rsp.remainLockTime > 0
                   ? "too many failed attempts: locked out for " + std::to_string(rsp.remainLockTime) + " more seconds"
                   : std::string("too many failed attempts: locked out");
    }
    return authenticationRequired(mode) + "; " + std::to_string(rsp.leftTryNum) +
           (rsp.leftTryNum == 1 ? " attempt" : " attempts") + " left before lock-out";
}

void checkCredentials(const TelmiLibrary& library, ZQConfigMgr::TELMIMode mode, uint16_t httpPort,
                      const AdmissionRequest& req, AdmissionAnswer& res) {
    if (library.getProtocolEnable() == 0) {
        refuse(res, 403, "TELMI access is switched off on this gateway");
        return;
    }
    const std::string lockKey = lockKeyFor(req.client);
    if (lockKey.empty()) {
        refuse(res, 400, "the client's address cannot be read");
        return;
    }
    // A browser opens a page with several requests at once before it has credentials; those
    // are challenged here so that none counts as a failed attempt.
    if (!isDigestHeader(req.authorization)) {
        refuse(res, 401, authenticationRequired(mode), digestChallenge(false));
        return;
    }
    std::string answer;
    std::string userName;
    // nginx hands both the header and the target on untouched: nothing was decoded.
    const DigestAnswerFault fault = rebuildDigestAnswer(req.authorization, req.target, req.target, answer, userName);
    tagTELMIAuthReq authReq {};
    if (fault == DigestAnswerFault::otherTarget) {
        GATEWAYD_LOG(gwlog::kWarning, "TELMI request from %s refused: its Digest answer names another target",
                     lockKey.c_str());
        refuse(res, 400, "the Digest uri does not name this request");
        return;
    }
    if (fault == DigestAnswerFault::malformed || answer.size() >= sizeof(authReq.authHeader)) {
        GATEWAYD_LOG(gwlog::kWarning, "TELMI request from %s refused: malformed Digest answer", lockKey.c_str());
        refuse(res, 400, "the Authorization header is not a well-formed Digest answer");
        return;
    }
    authReq.httpPort = httpPort;
    gwio::copyToField(authReq.lockKey, lockKey);
    gwio::copyToField(authReq.authHeader, answer);
    tagTelmiAuthRsp rsp {};
    const int code = library.checkDigest(rsp, req.method, authReq, mode);
    const std::string challengeText(rsp.challenge, ::strnlen(rsp.challenge, sizeof(rsp.challenge)));
    if (code == 0) {
        admit(res, std::string(rsp.deviceIndex, ::strnlen(rsp.deviceIndex, sizeof(rsp.deviceIndex))));
    } else if (code == kDigestFailed) {
        refuse(res, 401, refusalMessage(rsp, mode), challengeText);
        if (rsp.leftTryNum <= 0) {
            const std::string locked =
                mode == ZQConfigMgr::portMode ? "port " + std::to_string(httpPort) : "user \"" + userName + "\"";
            GATEWAYD_LOG(gwlog::kWarning, "TELMI requester %s is locked out of %s (%d s left)", lockKey.c_str(),
                         locked.c_str(), rsp.remainLockTime);
        }
    } else if (code == kBadArgument && !challengeText.empty()) {
        refuse(res, 401, "authentication required: the credentials name no user", challengeText);
    } else if (code == kNotFound && mode == ZQConfigMgr::userMode) {
        // An unknown user name is answered like a wrong password, so names cannot be probed.
        ZQ_BASE_CheckDigest(req.method.c_str(), answer.c_str(), kNoAccountHA1);
        refuse(res, 401, "authentication required", digestChallenge(false));
    } else if (code == kNotFound) {
        refuse(res, 404, "no device is bound to gateway port " + std::to_string(httpPort));
    } else {
        GATEWAYD_LOG(gwlog::kError, "TELMI Digest check failed with code %d", code);
        refuse(res, 500, "the gateway cannot check credentials (code " + std::to_string(code) + ")");
    }
}

// X-TELMI-Port as nginx writes it: a decimal port; 0 when missing or malformed.
uint16_t decimalPort(const std::string& text) {
    if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != std::string::npos) {
        return 0;
    }
    const int port = std::stoi(text);
    return port <= 65535 ? static_cast<uint16_t>(port) : 0;
}

}  // namespace

AdmissionAnswer decideAdmission(const TelmiLibrary& library, const AdmissionRequest& request) {
    AdmissionAnswer answer;
    const uint16_t httpPort = decimalPort(request.port);
    if ((request.mode != "user" && request.mode != "port") || httpPort == 0 || request.method.empty() ||
        request.target.empty()) {
        refuse(answer, 400, "the request did not come through one of the gateway's TELMI ports");
        return answer;
    }
    const ZQConfigMgr::TELMIMode mode = request.mode == "port" ? ZQConfigMgr::portMode : ZQConfigMgr::userMode;
    const RequestScopeGuard scope(mode == ZQConfigMgr::portMode ? ZQGateway::portModeScope(httpPort)
                                                                : ZQGateway::userModeScope());
    checkCredentials(library, mode, httpPort, request, answer);
    return answer;
}

}  // namespace gatewayd
