#include "Commands.h"

#include "Table.h"

namespace telmictl {

namespace {

std::string lockedOf(const Json::Value& lockout) {
    if (lockout.isMember("userName")) {
        return "user " + lockout["userName"].asString();
    }
    if (lockout.isMember("httpPort")) {
        return "port " + std::to_string(lockout["httpPort"].asUInt());
    }
    return "(removed)";
}

}  // namespace

void lockoutList(Session& session) {
    const auto body = session.accept(session.api().get("/api/lockouts"));
    if (!body || session.json()) {
        return;
    }
    Table table({"REQUESTER", "USER OR PORT", "DEVICE", "FAILURES", "LOCKED FOR"});
    for (const auto& lockout : (*body)["lockouts"]) {
        const std::string requester = lockout["requester"].asString();
        const int seconds = lockout["secondsLeft"].asInt();
        table.add({requester.empty() ? "(every requester)" : requester, lockedOf(lockout),
                   lockout["deviceID"].asString(), std::to_string(lockout["failures"].asInt()),
                   seconds > 0 ? std::to_string(seconds) + " s" : "not locked"});
    }
    table.print(stdout);
    session.say(counted((*body)["lockouts"].size(), "failure count"));
}

void lockoutClear(Session& session, const LockoutSelector& selector) {
    httplib::Params query;
    if (!selector.userName.empty()) {
        query.emplace("user", selector.userName);
    }
    if (selector.httpPort != 0) {
        query.emplace("port", std::to_string(selector.httpPort));
    }
    if (!selector.requester.empty()) {
        query.emplace("requester", selector.requester);
    }
    if (const auto body = session.accept(session.api().remove("/api/lockouts", query))) {
        session.say(counted((*body)["cleared"].asUInt(), "failure count") + " cleared");
    }
}

}  // namespace telmictl
