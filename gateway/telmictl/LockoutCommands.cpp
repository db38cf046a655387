#include "Commands.h"

#include <arpa/inet.h>

#include <cstdint>
#include <string_view>

#include "Table.h"

namespace telmictl {

namespace {

constexpr std::string_view kPrefixSuffix = "/64";

// The store keys an IPv6 requester by its /64 ("6" and 16 hex digits): shown as that prefix,
// which `lockout clear --requester` takes back.
std::string requesterText(const std::string& key) {
    if (key.size() != 17 || key[0] != '6' || key.find_first_not_of("0123456789abcdef", 1) != std::string::npos) {
        return key;
    }
    uint64_t prefix = std::stoull(key.substr(1), nullptr, 16);
    in6_addr address {};
    for (int byte = 7; byte >= 0; --byte, prefix >>= 8) {
        address.s6_addr[byte] = static_cast<unsigned char>(prefix & 0xff);
    }
    char text[INET6_ADDRSTRLEN] = {};
    return ::inet_ntop(AF_INET6, &address, text, sizeof(text)) != nullptr ? text + std::string(kPrefixSuffix) : key;
}

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
        table.add({requester.empty() ? "(every requester)" : requesterText(requester), lockedOf(lockout),
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
        // A prefix as the list shows it: any address in it names the same requester.
        std::string_view requester = selector.requester;
        if (requester.size() > kPrefixSuffix.size() &&
            requester.substr(requester.size() - kPrefixSuffix.size()) == kPrefixSuffix) {
            requester.remove_suffix(kPrefixSuffix.size());
        }
        query.emplace("requester", std::string(requester));
    }
    if (const auto body = session.accept(session.api().remove("/api/lockouts", query))) {
        session.say(counted((*body)["cleared"].asUInt(), "failure count") + " cleared");
    }
}

}  // namespace telmictl
