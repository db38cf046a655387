// TELMI user accounts: list, batch add, quick add, modify, batch delete.
#include "ApiError.h"
#include "ApiPaging.h"
#include "ApiReply.h"
#include "ApiRoutes.h"
#include "FixedField.h"
#include "JsonInput.h"
#include "RecordJson.h"

namespace gatewayd {
namespace {

using ZQTELMIMgrBus::tagTELMIUserInput;

constexpr size_t kMaxUserName = 32;
constexpr size_t kMaxPassword = 16;
constexpr size_t kMaxDeviceID = 31;
constexpr size_t kMaxIndex = 36;

tagTELMIUserInput userInput(const Json::Value& item) {
    tagTELMIUserInput input {};
    gwio::copyToField(input.userName, textMember(item, "userName", kMaxUserName));
    gwio::copyToField(input.password, textMember(item, "password", kMaxPassword));
    gwio::copyToField(input.deviceID, textMember(item, "deviceID", kMaxDeviceID));
    return input;
}

// One entry per account the library reports, with the new account's index when it was made.
Json::Value addResults(const std::vector<ZQDeviceMgr::tagAddUserRet>& results, gwapi::Job job) {
    Json::Value entries(Json::arrayValue);
    for (const auto& result : results) {
        Json::Value entry = resultEntry(result.result, job);
        if (result.user != nullptr) {
            entry["userIndex"] = result.user->getUserIndex();
            entry["userName"] = result.user->getUserName();
            entry["deviceIndex"] = result.user->getDeviceIndex();
        }
        entries.append(entry);
    }
    return entries;
}

// A quick user is named after its device's access ID: every entry, a failed one too, gets the
// name and device the store was asked for.
void nameQuickAddDevices(Json::Value& entries) {
    const std::vector<ZQDeviceMgr::tagTELMIUser> asked = ZQ_DeviceMgr_TakeQuickAddRequests();
    for (Json::ArrayIndex i = 0; i < entries.size() && i < asked.size(); ++i) {
        const std::string accessID = gwio::fieldText(asked[i].userName).value_or("");
        entries[i]["userName"] = accessID;
        entries[i]["deviceID"] = accessID;
        entries[i]["deviceIndex"] = gwio::fieldText(asked[i].deviceIndex).value_or("");
    }
}

}  // namespace

void addUserRoutes(ApiRouter& routes, const TelmiLibrary& library) {
    routes.get("/api/users", [&library](const httplib::Request& req, httplib::Response& res) {
        const ZQTELMIMgrBus::tagTelmiQueryReq page = pageRequest(req);
        std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIUser>> users;
        ZQTELMIMgrBus::tagTelmiQueryRsp rsp {};
        if (const int code = library.queryUserList(users, rsp, page); code != 0) {
            throw ApiError::fromCode(code, "the user list cannot be read");
        }
        Json::Value items(Json::arrayValue);
        for (const auto& user : users) {
            items.append(userJson(*user));
        }
        replyJson(res, 200, pageJson(rsp, "users", items));
    });

    routes.post("/api/users", [&library](const httplib::Request& req, httplib::Response& res) {
        const Json::Value body = parseObject(req.body);
        std::vector<tagTELMIUserInput> inputs;
        for (const Json::Value& item : objectArrayMember(body, "users")) {
            inputs.push_back(userInput(item));
        }
        std::vector<ZQDeviceMgr::tagAddUserRet> results;
        library.addUser(results, inputs);
        Json::Value answer;
        answer["results"] = addResults(results, gwapi::Job::addUser);
        replyJson(res, 200, answer);
    });

    routes.post("/api/users/quick", [&library](const httplib::Request& req, httplib::Response& res) {
        const std::string password = textMember(parseObject(req.body), "password", kMaxPassword);
        std::vector<ZQDeviceMgr::tagAddUserRet> results;
        if (const int code = library.quickAddUser(results, password); code != 0) {
            throw ApiError::fromCode(code, "no quick users were added", gwapi::Job::quickAddUser);
        }
        Json::Value body = resultEntry(0);
        body["results"] = addResults(results, gwapi::Job::quickAddUser);
        nameQuickAddDevices(body["results"]);
        replyJson(res, 200, body);
    });

    routes.put(R"(/api/users/([^/]+))", [&library](const httplib::Request& req, httplib::Response& res) {
        const std::string userIndex = req.matches[1];
        if (userIndex.size() > kMaxIndex) {
            throw ApiError::badInput("a user index is at most 36 characters");
        }
        const tagTELMIUserInput input = userInput(parseObject(req.body));
        if (const int code = library.modUser(userIndex, input); code != 0) {
            throw ApiError::fromCode(code, "the user was not modified", gwapi::Job::modifyUser);
        }
        replyJson(res, 200, resultEntry(0));
    });

    routes.post("/api/users/delete", [&library](const httplib::Request& req, httplib::Response& res) {
        const std::vector<std::string> indexes = textArrayMember(parseObject(req.body), "userIndexes", kMaxIndex);
        std::vector<int> codes;
        library.delUser(codes, indexes);
        Json::Value body;
        body["results"] = Json::Value(Json::arrayValue);
        for (size_t i = 0; i < codes.size() && i < indexes.size(); ++i) {
            Json::Value entry = resultEntry(codes[i]);
            entry["userIndex"] = indexes[i];
            body["results"].append(entry);
        }
        replyJson(res, 200, body);
    });
}

}  // namespace gatewayd
