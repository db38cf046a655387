#include "AdminDigestGuard.h"

#include "ApiReply.h"
#include "DigestChallenge.h"
#include "ZQBase.h"
#include "ZQConfigMgr.h"

namespace gatewayd {
namespace {

constexpr const char* kAdmin = "admin";
constexpr int kStaleNonce = -2;

bool refuse(httplib::Response& res, bool stale, const std::string& message) {
    const std::string challenge = digestChallenge(stale);
    if (!challenge.empty()) {
        res.set_header("WWW-Authenticate", challenge);
    }
    replyError(res, 401, 1028, message);
    return false;
}

}  // namespace

bool admitAdmin(const httplib::Request& req, httplib::Response& res) {
    const std::string header = req.get_header_value("Authorization");
    if (!isDigestHeader(header)) {
        return refuse(res, false, "Digest credentials of the gateway user \"admin\" are required");
    }
    if (digestParameter(header, "username") != kAdmin) {
        return refuse(res, false, "only the gateway user \"admin\" may use the management API");
    }
    if (digestParameter(header, "uri") != req.target) {
        return refuse(res, false, "the Digest uri does not name this request");
    }
    std::string ha1;
    const auto userCfg = ZQ_ConfigMgr_GetUserCfg();
    if (userCfg == nullptr || userCfg->getDigestHA1(ha1, kAdmin) != 0) {
        return refuse(res, false, "the gateway has no admin password yet: initialise the gateway home");
    }
    const int verdict = ZQ_BASE_CheckDigest(req.method.c_str(), header.c_str(), ha1.c_str());
    if (verdict == 0) {
        return true;
    }
    return verdict == kStaleNonce ? refuse(res, true, "the nonce has expired; answer the new challenge")
                                  : refuse(res, false, "wrong credentials");
}

}  // namespace gatewayd
