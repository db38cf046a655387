#include "Commands.h"

namespace telmictl {

void configCheck(Session& session) {
    const auto body = session.accept(session.api().get("/api/settings/check"));
    if (!body) {
        return;
    }
    const std::string file = (*body)["file"].asString();
    const Json::Value& problems = (*body)["problems"];
    if (!session.json()) {
        for (const auto& problem : problems) {
            std::printf("%s: %s\n", file.c_str(), problem.asString().c_str());
        }
        if (problems.empty()) {
            session.say(file + ": valid");
        }
    }
    if (!problems.empty()) {
        session.fail(kExitRefused, "the gateway would refuse to start with these settings");
    }
}

}  // namespace telmictl
