#include "TelmiFrontEnd.h"

#include <cstring>
#include <functional>

#include "DeviceForwarder.h"
#include "DigestChallenge.h"
#include "GatewaydLog.h"
#include "JsonInput.h"
#include "LockKey.h"

namespace gatewayd {
namespace {

using ZQTELMIMgrBus::tagTELMIAuthReq;
using ZQTELMIMgrBus::tagTelmiAuthRsp;

constexpr int kDigestFailed = 1028;
constexpr int kBadArgument = 1;
constexpr int kNotFound = 274;

// Where one TELMI request came from.
struct Arrival {
    ZQConfigMgr::TELMIMode mode;
    uint16_t httpPort;          // port mode: the gateway port nginx took it on
    std::string clientAddress;  // the client's IP address as text
};

void answerText(httplib::Response& res, int status, const std::string& message) {
    res.status = status;
    res.set_content(message + "\n", "text/plain");
}

void challenge(httplib::Response& res, const std::string& challengeText, const std::string& message) {
    if (!challengeText.empty()) {
        res.set_header("WWW-Authenticate", challengeText);
    }
    answerText(res, 401, message);
}

std::string refusalMessage(const tagTelmiAuthRsp& rsp) {
    if (rsp.leftTryNum <= 0) {
        // The time is the one read before this attempt: 0 when this very attempt locked.
        return rsp.remainLockTime > 0 ? "too many failed attempts: locked out for " +
                                            std::to_string(rsp.remainLockTime) + " more seconds"
                                      : std::string("too many failed attempts: locked out");
    }
    return "authentication required; " + std::to_string(rsp.leftTryNum) +
           (rsp.leftTryNum == 1 ? " attempt" : " attempts") + " left before lock-out";
}

void serveTelmi(const TelmiLibrary& library, const Arrival& arrival, const httplib::Request& req,
                httplib::Response& res) {
    if (library.getProtocolEnable() == 0) {
        answerText(res, 403, "TELMI access is switched off on this gateway");
        return;
    }
    const std::string lockKey = lockKeyFor(arrival.clientAddress);
    if (lockKey.empty()) {
        answerText(res, 400, "the client's address cannot be read");
        return;
    }
    // A browser opens a page with several requests at once before it has credentials; those
    // are challenged here so that none counts as a failed attempt.
    const std::string authorization = req.get_header_value("Authorization");
    if (!isDigestHeader(authorization)) {
        challenge(res, digestChallenge(false), "authentication required");
        return;
    }
    tagTELMIAuthReq authReq {};
    if (authorization.size() >= sizeof(authReq.authHeader)) {
        answerText(res, 400, "the Authorization header is too long");
        return;
    }
    authReq.httpPort = arrival.httpPort;
    copyToField(authReq.lockKey, lockKey);
    copyToField(authReq.authHeader, authorization);
    tagTelmiAuthRsp rsp {};
    const int code = library.checkDigest(rsp, req.method, authReq, arrival.mode);
    const std::string challengeText(rsp.challenge, ::strnlen(rsp.challenge, sizeof(rsp.challenge)));
    if (code == 0) {
        forwardToDevice(std::string(rsp.deviceIndex, ::strnlen(rsp.deviceIndex, sizeof(rsp.deviceIndex))),
                        arrival.clientAddress, req, res);
    } else if (code == kDigestFailed) {
        challenge(res, challengeText, refusalMessage(rsp));
        if (rsp.leftTryNum <= 0) {
            GATEWAYD_LOG(4, "TELMI requester %s is locked out (%d s left)", lockKey.c_str(), rsp.remainLockTime);
        }
    } else if (code == kBadArgument && !challengeText.empty()) {
        challenge(res, challengeText, "authentication required: the credentials name no user");
    } else if (code == kNotFound && arrival.mode == ZQConfigMgr::userMode) {
        // An unknown user name is answered like a wrong password, so names cannot be probed.
        challenge(res, digestChallenge(false), "authentication required");
    } else if (code == kNotFound) {
        answerText(res, 404, "no device is bound to gateway port " + std::to_string(arrival.httpPort));
    } else {
        GATEWAYD_LOG(5, "TELMI Digest check failed with code %d", code);
        answerText(res, 500, "the gateway cannot check credentials (code " + std::to_string(code) + ")");
    }
}

// The same handler for every method a TELMI client may use (HEAD is served by GET).
void routeAll(httplib::Server& server, const httplib::Server::Handler& handler) {
    const char* const kAnyPath = ".*";
    server.Get(kAnyPath, handler);
    server.Post(kAnyPath, handler);
    server.Put(kAnyPath, handler);
    server.Patch(kAnyPath, handler);
    server.Delete(kAnyPath, handler);
    server.Options(kAnyPath, handler);
}

// X-TELMI-Port as nginx writes it: a decimal port; 0 when missing or malformed.
uint16_t telmiPort(const httplib::Request& req) {
    const std::string text = req.get_header_value("X-TELMI-Port");
    if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != std::string::npos) {
        return 0;
    }
    const int port = std::stoi(text);
    return port <= 65535 ? static_cast<uint16_t>(port) : 0;
}

}  // namespace

void installUserModeFrontEnd(httplib::Server& server, const TelmiLibrary& library) {
    routeAll(server, [&library](const httplib::Request& req, httplib::Response& res) {
        serveTelmi(library, Arrival {ZQConfigMgr::userMode, 0, req.remote_addr}, req, res);
    });
}

void installPortModeFrontEnd(httplib::Server& server, const TelmiLibrary& library) {
    routeAll(server, [&library](const httplib::Request& req, httplib::Response& res) {
        const uint16_t port = telmiPort(req);
        if (port == 0) {
            answerText(res, 400, "the request did not come through one of the gateway's TELMI ports");
            return;
        }
        serveTelmi(library, Arrival {ZQConfigMgr::portMode, port, req.get_header_value("X-Real-IP")}, req, res);
    });
}

}  // namespace gatewayd
