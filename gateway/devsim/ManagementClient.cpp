#include "ManagementClient.h"

#include <regex>

#include "JsonText.h"

namespace devsim {

namespace {

constexpr time_t kConnectSeconds = 5;
// A registration may wait for the gateway to bring up listeners.
constexpr time_t kReadSeconds = 30;

// Why the gateway refused: its {"error": {"code", "message"}} when it sent one.
std::string refusal(const httplib::Result& result) {
    if (!result) {
        return "the management API cannot be reached: " + httplib::to_string(result.error());
    }
    std::string text = "HTTP " + std::to_string(result->status);
    Json::Value body;
    std::string ignored;
    if (result->status == 401) {
        text += ": the admin password was not accepted";
    } else if (parseJson(result->body, body, ignored) && body.isObject() && body["error"].isObject()) {
        text += ": " + body["error"].get("message", "").asString() + " (code " +
                std::to_string(body["error"].get("code", 0).asInt()) + ")";
    }
    return text;
}

}  // namespace

bool checkManagementUrl(const std::string& url, std::string& error) {
    static const std::regex kForm(R"(https?://[A-Za-z0-9.\-]+(:[0-9]{1,5})?/?)");
    if (!std::regex_match(url, kForm)) {
        error = "the management URL must look like http://127.0.0.1:8600 (got \"" + url + "\")";
        return false;
    }
    return true;
}

ManagementClient::ManagementClient(const std::string& url, const std::string& adminPassword)
    : client_(url.back() == '/' ? url.substr(0, url.size() - 1) : url) {
    client_.set_digest_auth("admin", adminPassword);
    client_.set_connection_timeout(kConnectSeconds);
    client_.set_read_timeout(kReadSeconds);
}

bool ManagementClient::registerDevice(const DeviceSpec& device, std::string& deviceIndex, std::string& error) {
    Json::Value body;
    body["protocol"] = device.protocol;
    body["deviceID"] = device.deviceID;
    body["name"] = device.name;
    body["category"] = device.category;
    body["telmiAddress"] = "http://127.0.0.1:" + std::to_string(device.httpPort);
    body["rtspAddress"] = "rtsp://127.0.0.1:" + std::to_string(device.rtspPort);
    const auto result = client_.Post("/api/devices", compactJson(body), "application/json");
    Json::Value answer;
    std::string ignored;
    if (!result || result->status != 201 || !parseJson(result->body, answer, ignored) ||
        !answer.isObject() || !answer["deviceIndex"].isString()) {
        error = "device " + device.deviceID + " not registered: " +
                (result && result->status == 201 ? "the answer names no deviceIndex" : refusal(result));
        return false;
    }
    deviceIndex = answer["deviceIndex"].asString();
    return true;
}

bool ManagementClient::unregisterDevice(const std::string& deviceIndex, std::string& error) {
    const auto result = client_.Delete("/api/devices/" + deviceIndex);
    if (!result || result->status != 200) {
        error = "device index " + deviceIndex + " not removed: " + refusal(result);
        return false;
    }
    return true;
}

}  // namespace devsim
