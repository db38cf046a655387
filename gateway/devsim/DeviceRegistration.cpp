#include "DeviceRegistration.h"

namespace devsim {

bool registerDevice(gwapi::ManagementClient& gateway, const DeviceSpec& device, std::string& deviceIndex,
                    std::string& error) {
    Json::Value body;
    body["protocol"] = device.protocol;
    body["deviceID"] = device.deviceID;
    body["name"] = device.name;
    body["category"] = device.category;
    body["telmiAddress"] = "http://127.0.0.1:" + std::to_string(device.httpPort);
    body["rtspAddress"] = "rtsp://127.0.0.1:" + std::to_string(device.rtspPort);
    const gwapi::ApiAnswer answer = gateway.post("/api/devices", body);
    if (answer.status != 201 || !answer.json.isObject() || !answer.json["deviceIndex"].isString()) {
        error = "device " + device.deviceID +
                " not registered: " + (answer.status == 201 ? "the answer names no deviceIndex" : answer.refusal());
        return false;
    }
    deviceIndex = answer.json["deviceIndex"].asString();
    return true;
}

bool unregisterDevice(gwapi::ManagementClient& gateway, const std::string& deviceIndex, std::string& error) {
    const gwapi::ApiAnswer answer = gateway.remove("/api/devices/" + gwapi::pathSegment(deviceIndex));
    // A 404 of the API itself (a code, unlike a missing route) means an administrator removed
    // the device already, which is what was asked.
    const bool gone = answer.status == 404 && answer.errorCode() != 0;
    if (answer.status != 200 && !gone) {
        error = "device index " + deviceIndex + " not removed: " + answer.refusal();
        return false;
    }
    return true;
}

}  // namespace devsim
