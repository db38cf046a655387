#include "Commands.h"

namespace telmictl {

namespace {

void sayState(Session& session, const Json::Value& body) {
    session.say(std::string("TELMI access is ") + (body["enabled"].asInt() == 1 ? "on" : "off"));
}

}  // namespace

void telmiStatus(Session& session) {
    if (const auto body = session.accept(session.api().get("/api/telmi"))) {
        sayState(session, *body);
    }
}

void telmiSwitch(Session& session, int enabled) {
    Json::Value request;
    request["enabled"] = enabled;
    if (const auto body = session.accept(session.api().put("/api/telmi", request))) {
        sayState(session, *body);
    }
}

}  // namespace telmictl
