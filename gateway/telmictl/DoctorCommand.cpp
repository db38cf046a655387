// Whether nginx and the media daemon listen on exactly the stored bindings, side by side.
#include "Commands.h"
#include "Table.h"

namespace telmictl {

void doctor(Session& session, bool repair) {
    std::optional<Json::Value> body;
    if (repair) {
        body = session.accept(session.api().post("/api/listeners/repair"));
    } else {
        body = session.accept(session.api().get("/api/listeners"));
    }
    if (!body) {
        return;
    }
    const Json::Value& views = repair ? (*body)["listeners"] : *body;
    if (!session.json()) {
        if (repair) {
            for (const auto& what : (*body)["repaired"]) {
                session.say("repaired: " + what.asString());
            }
        }
        const auto deviceIds = deviceIdsByIndex(session);
        Table table({"PORT INDEX", "DEVICE", "HTTP", "NGINX", "RTSP", "MEDIA DAEMON"});
        for (const auto& binding : views["bindings"]) {
            const std::string deviceIndex = binding["deviceIndex"].asString();
            const auto device = deviceIds.find(deviceIndex);
            table.add({binding["portIndex"].asString(), device != deviceIds.end() ? device->second : deviceIndex,
                       std::to_string(binding["httpPort"].asInt()), binding["nginx"].asString(),
                       std::to_string(binding["rtspPort"].asInt()), binding["media"].asString()});
        }
        table.print(stdout);
        for (const auto& problem : views["problems"]) {
            session.say("out of step: " + problem.asString());
        }
        if (views["inStep"].asBool()) {
            session.say("nginx and the media daemon listen on exactly the stored bindings");
        }
    }
    if (!views["inStep"].asBool()) {
        session.fail(kExitRefused, repair ? "still out of step after the repair"
                                          : "the listeners are out of step with the "
                                            "stored bindings (telmictl doctor --repair)");
    }
}

}  // namespace telmictl
