#include "Commands.h"

namespace telmictl {

namespace {

constexpr int kWholePage = 500;

// The records of a list route whose key word is text; none once the session has failed.
std::optional<Json::Value> listMatching(Session& session, const std::string& route, const std::string& text) {
    const gwapi::ApiAnswer answer = session.api().get(route, pagingQuery({0, kWholePage, text}));
    if (answer.status != 200 || !answer.json.isObject()) {
        session.accept(answer);
        return std::nullopt;
    }
    return answer.json;
}

}  // namespace

std::optional<Json::Value> userNamed(Session& session, const std::string& name) {
    if (const auto page = listMatching(session, "/api/users", name)) {
        for (const auto& user : (*page)["users"]) {
            if (user["userName"].asString() == name) {
                return user;
            }
        }
        session.fail(kExitRefused, "no TELMI user is named \"" + name + "\"");
    }
    return std::nullopt;
}

std::optional<std::string> portIndexOf(Session& session, const std::string& deviceID) {
    const auto deviceIds = deviceIdsByIndex(session);
    if (const auto page = listMatching(session, "/api/ports", deviceID)) {
        for (const auto& port : (*page)["ports"]) {
            const auto device = deviceIds.find(port["deviceIndex"].asString());
            if (device != deviceIds.end() && device->second == deviceID) {
                return port["portIndex"].asString();
            }
        }
        session.fail(kExitRefused, "no port binding belongs to device " + deviceID);
    }
    return std::nullopt;
}

std::optional<std::vector<std::string>> indexesOf(Session& session, const std::vector<std::string>& names,
                                                  std::optional<std::string> (*lookup)(Session&, const std::string&)) {
    std::vector<std::string> indexes;
    for (const auto& name : names) {
        const auto index = lookup(session, name);
        if (!index) {
            return std::nullopt;
        }
        indexes.push_back(*index);
    }
    return indexes;
}

}  // namespace telmictl
