// Lock-outs of TELMI requesters, as the device store counts them: who is locked out of which
// user or port, and lifting them before their time.
#include "ApiError.h"
#include "ApiReply.h"
#include "ApiRoutes.h"
#include "JsonInput.h"
#include "LockKey.h"
#include "RecordJson.h"
#include "ZQGatewayDevices.h"

namespace gatewayd {
namespace {

constexpr size_t kMaxUserName = 32;
constexpr size_t kMaxRequester = 64;

// The user or binding a count belongs to, and its device; both empty once the record is gone.
void describeRecord(const std::string& recordIndex, Json::Value& item) {
    std::string deviceIndex;
    if (const auto user = ZQ_DeviceMgr_GetTELMIUser(recordIndex)) {
        item["userIndex"] = recordIndex;
        item["userName"] = user->getUserName();
        deviceIndex = user->getDeviceIndex();
    } else if (std::shared_ptr<ZQDeviceMgr::CTELMIPort> port;
               ZQ_DeviceMgr_GetTELMIPort(port, recordIndex) == 0 && port != nullptr) {
        item["portIndex"] = recordIndex;
        item["httpPort"] = port->getHttpPort();
        deviceIndex = port->getDeviceIndex();
    }
    item["deviceIndex"] = deviceIndex;
    const auto device = deviceIndex.empty() ? nullptr : ZQ_DeviceMgr_GetDevice(deviceIndex);
    item["deviceID"] = device != nullptr ? accessID(*device) : "";
}

// The record the query names by user name or gateway HTTP port; empty when it names neither.
std::string selectedRecord(const httplib::Request& req) {
    const std::string userName = queryText(req, "user", kMaxUserName);
    const int httpPort = queryInt(req, "port", 0, 1, 65535);
    if (!userName.empty() && httpPort != 0) {
        throw ApiError::badInput("name a user or a port, not both");
    }
    if (!userName.empty()) {
        std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIUser>> users;
        ZQ_DeviceMgr_GetAllTELMIUser(users);
        for (const auto& user : users) {
            if (user->getUserName() == userName) {
                return user->getUserIndex();
            }
        }
        throw ApiError(404, ZQGateway::storeNotFound, "no TELMI user is named \"" + userName + "\"");
    }
    if (httpPort != 0) {
        std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> ports;
        ZQ_DeviceMgr_GetAllTELMIPort(ports);
        for (const auto& port : ports) {
            if (port->getHttpPort() == httpPort) {
                return port->getPortIndex();
            }
        }
        throw ApiError(404, ZQGateway::storeNotFound, "no device is bound to port " + std::to_string(httpPort));
    }
    return "";
}

// A requester as the list shows it (its key), or an address, which is keyed as admission keys it.
std::string selectedRequester(const httplib::Request& req) {
    const std::string requester = queryText(req, "requester", kMaxRequester);
    const std::string key = lockKeyFor(requester);
    return key.empty() ? requester : key;
}

}  // namespace

void addLockoutRoutes(ApiRouter& routes) {
    routes.get("/api/lockouts", [](const httplib::Request&, httplib::Response& res) {
        std::vector<ZQGateway::tagLockout> lockouts;
        if (const int code = ZQ_DeviceMgr_GetLockouts(lockouts); code != 0) {
            throw ApiError::fromCode(code, "the lock-outs cannot be read");
        }
        Json::Value body;
        body["lockouts"] = Json::Value(Json::arrayValue);
        for (const auto& lockout : lockouts) {
            Json::Value item;
            item["requester"] = lockout.requester;
            item["failures"] = lockout.failures;
            item["secondsLeft"] = lockout.secondsLeft;
            describeRecord(lockout.recordIndex, item);
            body["lockouts"].append(item);
        }
        replyJson(res, 200, body);
    });

    routes.del("/api/lockouts", [](const httplib::Request& req, httplib::Response& res) {
        int cleared = 0;
        if (const int code = ZQ_DeviceMgr_ClearLockouts(selectedRecord(req), selectedRequester(req), cleared);
            code != 0) {
            throw ApiError::fromCode(code, "the lock-outs were not cleared");
        }
        Json::Value body = resultEntry(0);
        body["cleared"] = cleared;
        replyJson(res, 200, body);
    });
}

}  // namespace gatewayd
