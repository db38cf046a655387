// The gateway's own health: its daemons, and whether what they listen on matches the stored
// bindings; repairs on request.
#include "ApiReply.h"
#include "ApiRoutes.h"

namespace gatewayd {

void addListenerRoutes(ApiRouter& routes, ListenerKeeper& keeper) {
    routes.get("/api/health", [&keeper](const httplib::Request&, httplib::Response& res) {
        replyJson(res, 200, keeper.healthJson());
    });
    routes.get("/api/listeners", [&keeper](const httplib::Request&, httplib::Response& res) {
        replyJson(res, 200, keeper.reconciler().viewsJson());
    });
    routes.post("/api/listeners/repair", [&keeper](const httplib::Request&, httplib::Response& res) {
        Json::Value body(Json::objectValue);
        Json::Value& repaired = body["repaired"] = Json::Value(Json::arrayValue);
        for (const std::string& what : keeper.reconciler().pass(true)) {
            repaired.append(what);
        }
        body["listeners"] = keeper.reconciler().viewsJson();
        replyJson(res, 200, body);
    });
}

}  // namespace gatewayd
