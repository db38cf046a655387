#include "AdminDigestGuard.h"

#include "ApiReply.h"
#include "DigestAnswer.h"
#include "DigestChallenge.h"
#include "RequestScopeGuard.h"
#include "ZQBase.h"
#include "ZQGatewayHome.h"

namespace gatewayd {
namespace {

constexpr const char* kAdmin = "admin";
constexpr int kStaleNonce = -2;

bool refuse(httplib::Response& res, bool stale, const std::string& message) {
    const std::string challenge = digestChallenge(stale, ZQGateway::kManagementRealm);
    if (!challenge.empty()) {
        res.set_header("WWW-Authenticate", challenge);
    }
    replyError(res, 401, 1028, message);
    return false;
}

}  // namespace

bool admitAdmin(const httplib::Request& req, httplib::Response& res) {
    const RequestScopeGuard scope(ZQGateway::managementScope());
    const std::string header = req.get_header_value("Authorization");
    if (!isDigestHeader(header)) {
        return refuse(res, false, "Digest credentials of the gateway user \"admin\" are required");
    }
    std::string answer;
    std::string userName;
    switch (rebuildDigestAnswer(header, req.get_header_value("X-Request-Target"), req.target, answer, userName)) {
        case DigestAnswerFault::malformed:
            return refuse(res, false, "the Authorization header is not a well-formed Digest answer");
        case DigestAnswerFault::otherTarget: return refuse(res, false, "the Digest uri does not name this request");
        case DigestAnswerFault::none: break;
    }
    if (userName != kAdmin) {
        return refuse(res, false, "only the gateway user \"admin\" may use the management API");
    }
    std::string ha1;
    if (ZQ_Gateway_GetManagerHA1(kAdmin, ha1) != 0) {
        return refuse(res, false, "the gateway has no admin password yet: initialise the gateway home");
    }
    const int verdict = ZQ_BASE_CheckDigest(req.method.c_str(), answer.c_str(), ha1.c_str());
    if (verdict == 0) {
        return true;
    }
    return verdict == kStaleNonce ? refuse(res, true, "the nonce is stale; answer the new challenge")
                                  : refuse(res, false, "wrong credentials");
}

}  // namespace gatewayd
