// The TELMI on/off switch: 1 lets the TELMI front ends serve, 0 makes them refuse.
#include "ApiError.h"
#include "ApiReply.h"
#include "ApiRoutes.h"
#include "JsonInput.h"

namespace gatewayd {

void addTelmiSwitchRoutes(ApiRouter& routes, const TelmiLibrary& library) {
    routes.get("/api/telmi", [&library](const httplib::Request&, httplib::Response& res) {
        Json::Value body;
        body["enabled"] = library.getProtocolEnable();
        replyJson(res, 200, body);
    });
    routes.put("/api/telmi", [&library](const httplib::Request& req, httplib::Response& res) {
        const int enabled = intMember(parseObject(req.body), "enabled", 0, 1);
        if (const int code = library.setProtocolEnable(enabled); code != 0) {
            throw ApiError::fromCode(code, "the TELMI switch was not changed");
        }
        Json::Value body;
        body["enabled"] = library.getProtocolEnable();
        replyJson(res, 200, body);
    });
}

}  // namespace gatewayd
