#include "Commands.h"

#include "Table.h"

namespace telmictl {

namespace {

Json::Value userJson(const UserInput& user, const std::string& password) {
    Json::Value json;
    json["userName"] = user.userName;
    json["password"] = password;
    json["deviceID"] = user.deviceID;
    return json;
}

// Entries of an added account carry its name and index.
void reportAdded(Session& session, const Json::Value& results, const std::vector<UserInput>& asked) {
    for (Json::ArrayIndex i = 0; i < results.size() && i < asked.size(); ++i) {
        session.reportItem(asked[i].userName, results[i], "added, user index " + results[i]["userIndex"].asString(),
                           gwapi::Job::addUser);
    }
    session.finishBatch(results);
}

}  // namespace

void userList(Session& session, const Paging& paging) {
    const auto page = session.accept(session.api().get("/api/users", pagingQuery(paging)));
    if (!page || session.json()) {
        return;
    }
    const auto deviceIds = deviceIdsByIndex(session);
    Table table({"USER INDEX", "NAME", "DEVICE", "ADDED"});
    for (const auto& user : (*page)["users"]) {
        const std::string deviceIndex = user["deviceIndex"].asString();
        const auto device = deviceIds.find(deviceIndex);
        table.add({user["userIndex"].asString(), user["userName"].asString(),
                   device != deviceIds.end() ? device->second : deviceIndex, user["addTime"].asString()});
    }
    table.print(stdout);
    sayPage(session, *page, paging, "user");
}

void userAdd(Session& session, const std::vector<UserInput>& users, const std::string& password) {
    Json::Value request;
    for (const auto& user : users) {
        request["users"].append(userJson(user, password));
    }
    if (const auto body = session.accept(session.api().post("/api/users", request))) {
        reportAdded(session, (*body)["results"], users);
    }
}

void userQuickAdd(Session& session, const std::string& password) {
    Json::Value request;
    request["password"] = password;
    if (const auto body = session.accept(session.api().post("/api/users/quick", request))) {
        // Every entry names the device it was for; a quick user is named after its access ID.
        for (const auto& entry : (*body)["results"]) {
            session.reportItem(
                "device " + entry["deviceID"].asString(), entry,
                "added user " + entry["userName"].asString() + ", user index " + entry["userIndex"].asString(),
                gwapi::Job::quickAddUser);
        }
        session.finishBatch((*body)["results"]);
    }
}

void userModify(Session& session, const std::string& userIndex, const UserInput& user, const std::string& password) {
    if (session.accept(session.api().put("/api/users/" + gwapi::pathSegment(userIndex), userJson(user, password)))) {
        session.say("user " + userIndex + " modified: " + user.userName + " on device " + user.deviceID);
    }
}

void userModifyNamed(Session& session, const std::string& name, UserInput user, const std::string& password) {
    const auto current = userNamed(session, name);
    if (!current) {
        return;
    }
    if (user.userName.empty()) {
        user.userName = name;
    }
    if (user.deviceID.empty()) {
        const auto deviceIds = deviceIdsByIndex(session);
        const auto device = deviceIds.find((*current)["deviceIndex"].asString());
        if (device == deviceIds.end()) {
            session.fail(kExitRefused, "the device of user " + name + " is no longer attached; name one with --device");
            return;
        }
        user.deviceID = device->second;
    }
    userModify(session, (*current)["userIndex"].asString(), user, password);
}

void userDeleteNamed(Session& session, const std::vector<std::string>& names) {
    const auto userIndexOf = [](Session& s, const std::string& name) -> std::optional<std::string> {
        const auto user = userNamed(s, name);
        return user ? std::optional<std::string>((*user)["userIndex"].asString()) : std::nullopt;
    };
    if (const auto indexes = indexesOf(session, names, userIndexOf)) {
        userDelete(session, *indexes);
    }
}

void userDelete(Session& session, const std::vector<std::string>& userIndexes) {
    Json::Value request;
    for (const auto& index : userIndexes) {
        request["userIndexes"].append(index);
    }
    if (const auto body = session.accept(session.api().post("/api/users/delete", request))) {
        for (const auto& entry : (*body)["results"]) {
            session.reportItem(entry["userIndex"].asString(), entry, "deleted");
        }
        session.finishBatch((*body)["results"]);
    }
}

}  // namespace telmictl
