// telmictl's commands, one per management API route. Each reports through the session: a
// table or sentences, or the API's JSON with --json; refusals and failed items set its exit
// status.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Session.h"

namespace telmictl {

struct Paging {
    int start = 0;
    int max = 50;
    std::string keyword;  // empty: every record
};

struct UserInput {
    std::string userName;
    std::string deviceID;
};

struct DeviceInput {
    int protocol = 2;  // 2 Tarn, 4 Tarn5
    std::string deviceID;
    std::string name;  // empty: not sent
    int category = 1;
    std::string telmiAddress;  // empty: not sent
    std::string rtspAddress;   // empty: not sent
};

void telmiStatus(Session& session);
void telmiSwitch(Session& session, int enabled);

void userList(Session& session, const Paging& paging);
// One password for every account of the batch.
void userAdd(Session& session, const std::vector<UserInput>& users, const std::string& password);
void userQuickAdd(Session& session, const std::string& password);
void userModify(Session& session, const std::string& userIndex, const UserInput& user, const std::string& password);
// The user of that name; an empty field of user keeps the user's name or device.
void userModifyNamed(Session& session, const std::string& name, UserInput user, const std::string& password);
void userDelete(Session& session, const std::vector<std::string>& userIndexes);
void userDeleteNamed(Session& session, const std::vector<std::string>& names);

void portList(Session& session, const Paging& paging);
void portBind(Session& session, const std::vector<std::string>& deviceIDs);
void portUnbind(Session& session, const std::vector<std::string>& portIndexes);
void portUnbindDevices(Session& session, const std::vector<std::string>& deviceIDs);
void portRetry(Session& session, const std::string& portIndex);

// Which lock-outs a clear lifts; all of them only when asked for by all.
struct LockoutSelector {
    std::string userName;
    int httpPort = 0;
    std::string requester;
    bool all = false;
};

void lockoutList(Session& session);
void lockoutClear(Session& session, const LockoutSelector& selector);

// config check: the home's settings file as the running service would read it at its next start.
void configCheck(Session& session);

// credential: "management" or "port-mode", as the route names it.
void changeCredential(Session& session, const std::string& credential, const std::string& password);

// With each device's TELMI reach now: online, offline or no TELMI address.
void deviceList(Session& session, const Paging& paging);
void deviceAdd(Session& session, const DeviceInput& device);
void deviceRemove(Session& session, const std::string& deviceIndex);

// Store, nginx and media daemon side by side; with repair, the reconciler runs first. Fails
// while they disagree.
void doctor(Session& session, bool repair);

// Device index -> device ID, for tables that name devices; empty when the list is not available
// (the tables then show device indexes).
std::map<std::string, std::string> deviceIdsByIndex(Session& session);

// The user named name, as the user list shows it; none once the session has failed.
std::optional<Json::Value> userNamed(Session& session, const std::string& name);
// The index of the device's port binding; none once the session has failed.
std::optional<std::string> portIndexOf(Session& session, const std::string& deviceID);

// The index of every record named, each found by lookup; none once one is not found, so that a
// batch goes whole or not at all.
std::optional<std::vector<std::string>> indexesOf(Session& session, const std::vector<std::string>& names,
                                                  std::optional<std::string> (*lookup)(Session&, const std::string&));

// The query of a list page: start, max and, when given, keyword.
httplib::Params pagingQuery(const Paging& paging);
// How many records matched, and where the next page starts when this one holds less than all.
void sayPage(Session& session, const Json::Value& page, const Paging& paging, const std::string& record);
// "1 device", "2 devices".
std::string counted(unsigned count, const std::string& record);

}  // namespace telmictl
