// The gateway's two administrator credentials: a new password for the management API's admin
// or for the TELMI "admin" of port mode. The answer names the clients that must follow.
#include "ApiError.h"
#include "ApiReply.h"
#include "ApiRoutes.h"
#include "HomeInit.h"
#include "JsonInput.h"

namespace gatewayd {
namespace {

constexpr size_t kMaxPassword = 64;

}  // namespace

void addCredentialRoutes(ApiRouter& routes) {
    routes.put(R"(/api/credentials/(management|port-mode))", [](const httplib::Request& req, httplib::Response& res) {
        const Credential credential = req.matches[1] == "management" ? Credential::management : Credential::portMode;
        const std::string password = textMember(parseObject(req.body), "password", kMaxPassword);
        if (const int code = replaceCredential(credential, password); code != 0) {
            throw ApiError::fromCode(code, "the password was not changed", gwapi::Job::changePassword);
        }
        Json::Value body = resultEntry(0);
        body["clients"] = clientsOf(credential);
        replyJson(res, 200, body);
    });
}

}  // namespace gatewayd
