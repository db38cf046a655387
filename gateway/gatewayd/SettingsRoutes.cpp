// The home's settings file checked by the running service: an administrator edits gateway.json
// while the gateway runs and asks, before a restart, whether the service would take it.
#include "ApiReply.h"
#include "ApiRoutes.h"
#include "ZQGatewayHome.h"

namespace gatewayd {

void addSettingsRoutes(ApiRouter& routes) {
    routes.get("/api/settings/check", [](const httplib::Request&, httplib::Response& res) {
        const std::string path = ZQ_Gateway_HomePath(ZQGateway::kSettingsFile);
        Json::Value body(Json::objectValue);
        body["file"] = path;
        Json::Value& problems = body["problems"] = Json::Value(Json::arrayValue);
        for (const std::string& problem : ZQ_Gateway_CheckSettingsFile(path)) {
            problems.append(problem);
        }
        replyJson(res, 200, body);
    });
}

}  // namespace gatewayd
