// Devices attached to the gateway, through the device store directly: registering one, and
// removing one, which the store reports to the library so that it releases the device's
// account and bindings.
#include <algorithm>
#include <cctype>

#include "ApiError.h"
#include "ApiReply.h"
#include "ApiRoutes.h"
#include "DeviceReach.h"
#include "GatewaydLog.h"
#include "JsonInput.h"
#include "RecordJson.h"
#include "ZQBase.h"
#include "ZQGatewayDevices.h"

namespace gatewayd {
namespace {

constexpr size_t kMaxDeviceID = 31;
constexpr size_t kMaxName = 128;
constexpr size_t kMaxAddress = 256;
constexpr size_t kMaxIndex = 36;
constexpr int kTarn = 2, kTarn5 = 4;
constexpr size_t kMaxKeyWord = 128;
constexpr int kMaxStart = 1000000;
// How long a listing with reach=1 waits for devices to accept a connection.
constexpr int kReachTimeoutMs = 1000;

bool containsIgnoringCase(const std::string& text, const std::string& part) {
    return std::search(text.begin(), text.end(), part.begin(), part.end(), [](char a, char b) {
               return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
           }) != text.end();
}

const char* reachText(Reach reach) {
    switch (reach) {
        case Reach::online: return "online";
        case Reach::offline: return "offline";
        case Reach::noAddress: return "no TELMI address";
    }
    return "";
}

// "scheme://host[:port]", nothing after the authority: the gateway addresses the device itself,
// and only where the device store lets it (the store checks again when it registers).
std::string addressMember(const Json::Value& body, const char* name, const std::string& scheme, uint16_t defaultPort) {
    const std::string address = optionalTextMember(body, name, kMaxAddress, "");
    const std::string prefix = scheme + "://";
    if (!address.empty() && (address.compare(0, prefix.size(), prefix) != 0 || address.size() == prefix.size() ||
                             address.find_first_of("/?# ", prefix.size()) != std::string::npos)) {
        throw ApiError::badInput(std::string("\"") + name + "\" must look like " + prefix + "host:port");
    }
    std::string why;
    if (const int code = ZQ_DeviceMgr_CheckDeviceAddress(address, defaultPort, why); code != 0) {
        throw ApiError(gwapi::meaningOf(code).httpStatus, code, std::string("\"") + name + "\" refused: " + why);
    }
    return address;
}

}  // namespace

void addDeviceRoutes(ApiRouter& routes) {
    routes.get("/api/devices", [](const httplib::Request& req, httplib::Response& res) {
        const int start = queryInt(req, "start", 0, 0, kMaxStart);
        const int max = queryInt(req, "max", kMaxStart, 0, kMaxStart);
        const std::string keyword = queryText(req, "keyword", kMaxKeyWord);
        const bool reach = queryInt(req, "reach", 0, 0, 1) == 1;
        std::vector<std::shared_ptr<ZQGateway::CGatewayDevice>> devices;
        if (const int code = ZQ_DeviceMgr_GetAllDevices(devices); code != 0) {
            throw ApiError::fromCode(code, "the device list cannot be read");
        }
        Json::Value body;
        body["devices"] = Json::Value(Json::arrayValue);
        std::vector<std::string> telmiAddresses;
        int matches = 0;
        for (const auto& device : devices) {
            if (!keyword.empty() && !containsIgnoringCase(accessID(*device), keyword) &&
                !containsIgnoringCase(device->getDeviceName(), keyword)) {
                continue;
            }
            if (matches++ >= start && static_cast<int>(body["devices"].size()) < max) {
                body["devices"].append(deviceJson(*device));
                telmiAddresses.push_back(device->getTelmiAddress());
            }
        }
        if (reach) {
            const std::vector<Reach> states = telmiReach(telmiAddresses, kReachTimeoutMs);
            for (Json::ArrayIndex i = 0; i < states.size(); ++i) {
                body["devices"][i]["telmi"] = reachText(states[i]);
            }
        }
        body["totalMatches"] = matches;
        body["numReturned"] = body["devices"].size();
        replyJson(res, 200, body);
    });

    routes.post("/api/devices", [](const httplib::Request& req, httplib::Response& res) {
        const Json::Value body = parseObject(req.body);
        ZQGateway::tagDeviceInfo info;
        const int protocol = intMember(body, "protocol", kTarn, kTarn5);
        if (protocol != kTarn && protocol != kTarn5) {
            throw ApiError::badInput("\"protocol\" must be 2 (Tarn) or 4 (Tarn5)");
        }
        info.protocol = static_cast<uint8_t>(protocol);
        const std::string deviceID = textMember(body, "deviceID", kMaxDeviceID);
        if (deviceID.empty()) {
            throw ApiError::badInput("\"deviceID\" must not be empty");
        }
        (protocol == kTarn5 ? info.tarn5DeviceID : info.tarnDeviceID) = deviceID;
        info.name = optionalTextMember(body, "name", kMaxName, "");
        info.category = static_cast<uint8_t>(body.isMember("category") ? intMember(body, "category", 1, 2) : 1);
        info.telmiAddress = addressMember(body, "telmiAddress", "http", ZQGateway::kTelmiDefaultPort);
        info.rtspAddress = addressMember(body, "rtspAddress", "rtsp", ZQGateway::kRtspDefaultPort);
        std::string deviceIndex;
        if (const int code = ZQ_DeviceMgr_RegisterDevice(deviceIndex, info); code != 0) {
            throw ApiError::fromCode(code, "the device was not registered");
        }
        // nginx reaches each device through an upstream of its own, made from the store.
        if (ZQBase::CNginxOper::getInstance()->Reboot() == 0) {
            GATEWAYD_LOG(gwlog::kWarning, "device %s registered, but nginx could not take its upstream",
                         deviceIndex.c_str());
        }
        Json::Value answer;
        answer["deviceIndex"] = deviceIndex;
        replyJson(res, 201, answer);
    });

    routes.del(R"(/api/devices/([^/]+))", [](const httplib::Request& req, httplib::Response& res) {
        const std::string deviceIndex = req.matches[1];
        if (deviceIndex.size() > kMaxIndex) {
            throw ApiError::badInput("a device index is at most 36 characters");
        }
        if (const int code = ZQ_DeviceMgr_RemoveDevice(deviceIndex); code != 0) {
            throw ApiError::fromCode(code, "the device was not removed");
        }
        Json::Value answer;
        answer["deviceIndex"] = deviceIndex;
        replyJson(res, 200, answer);
    });
}

}  // namespace gatewayd
