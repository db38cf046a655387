#include "DeviceSpec.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "JsonText.h"

namespace devsim {

namespace {

constexpr size_t kMaxDeviceIDLength = 31;
constexpr size_t kMaxNameLength = 128;

// Tones 100 Hz apart, so that devices can be told apart by ear.
int defaultTone(size_t ordinal) { return 400 + 100 * static_cast<int>(ordinal % 8); }

bool printable(const std::string& text, bool spacesAllowed) {
    return std::all_of(text.begin(), text.end(),
                       [spacesAllowed](char c) { return (c > ' ' && c < 0x7f) || (spacesAllowed && c == ' '); });
}

std::string describe(const DeviceSpec& device, size_t ordinal) {
    return "device " + std::to_string(ordinal + 1) + (device.deviceID.empty() ? "" : " (" + device.deviceID + ")");
}

std::string checkDevice(const DeviceSpec& device) {
    if (device.deviceID.empty() || device.deviceID.size() > kMaxDeviceIDLength || !printable(device.deviceID, false)) {
        return "the device ID must be 1 to 31 printable characters without spaces";
    }
    if (device.name.empty() || device.name.size() > kMaxNameLength || !printable(device.name, true)) {
        return "the name must be 1 to 128 printable characters";
    }
    if (device.protocol != kTarn && device.protocol != kTarn5) {
        return "the protocol must be tarn (2) or tarn5 (4)";
    }
    if (device.category != 1 && device.category != 2) {
        return "the category must be 1 or 2";
    }
    if (device.httpPort < 1 || device.httpPort > 65535 || device.rtspPort < 1 || device.rtspPort > 65535) {
        return "ports must be 1 to 65535 (HTTP " + std::to_string(device.httpPort) + ", RTSP " +
               std::to_string(device.rtspPort) + ")";
    }
    if (device.toneHz < 100 || device.toneHz > 3900) {
        return "the tone must be 100 to 3900 Hz";
    }
    return "";
}

bool readDevice(const Json::Value& entry, size_t ordinal, DeviceSpec& device, std::string& error) {
    static const std::set<std::string> kMembers {"deviceID", "name",     "protocol", "category",
                                                 "httpPort", "rtspPort", "toneHz"};
    const std::string where = "entry " + std::to_string(ordinal + 1) + ": ";
    if (!entry.isObject()) {
        error = where + "not a JSON object";
        return false;
    }
    for (const auto& member : entry.getMemberNames()) {
        if (kMembers.count(member) == 0) {
            error = where + "unknown member \"" + member + "\"";
            return false;
        }
    }
    const auto text = [&](const char* member, std::string& out) {
        if (!entry.isMember(member)) {
            return true;
        }
        if (!entry[member].isString()) {
            error = where + "\"" + member + "\" must be a string";
            return false;
        }
        out = entry[member].asString();
        return true;
    };
    const auto integer = [&](const char* member, int& out) {
        if (!entry.isMember(member)) {
            return true;
        }
        if (!entry[member].isInt()) {
            error = where + "\"" + member + "\" must be an integer";
            return false;
        }
        out = entry[member].asInt();
        return true;
    };
    if (!entry.isMember("deviceID") || !entry.isMember("httpPort") || !entry.isMember("rtspPort")) {
        error = where + "\"deviceID\", \"httpPort\" and \"rtspPort\" are required";
        return false;
    }
    std::string protocol = "tarn";
    device.toneHz = defaultTone(ordinal);
    if (!text("deviceID", device.deviceID) || !text("name", device.name) || !text("protocol", protocol) ||
        !integer("category", device.category) || !integer("httpPort", device.httpPort) ||
        !integer("rtspPort", device.rtspPort) || !integer("toneHz", device.toneHz)) {
        return false;
    }
    if (device.name.empty()) {
        device.name = device.deviceID;
    }
    if (protocol != "tarn" && protocol != "tarn5") {
        error = where + "\"protocol\" must be \"tarn\" or \"tarn5\"";
        return false;
    }
    device.protocol = protocol == "tarn" ? kTarn : kTarn5;
    return true;
}

}  // namespace

const char* protocolName(int protocol) { return protocol == kTarn5 ? "tarn5" : "tarn"; }

std::vector<DeviceSpec> generateDevices(const DeviceRun& run) {
    const size_t width = std::max<size_t>(3, std::to_string(run.count).size());
    std::vector<DeviceSpec> devices;
    for (int i = 0; i < run.count; ++i) {
        const bool odd = i % 2 == 1;
        std::string number = std::to_string(i + 1);
        number.insert(0, width - number.size(), '0');
        DeviceSpec device;
        device.deviceID = run.idPrefix + number;
        device.name = run.namePrefix + std::to_string(i + 1);
        device.protocol = run.protocol == "tarn5" || (run.protocol == "alternating" && odd) ? kTarn5 : kTarn;
        device.category = run.category == "2" || (run.category == "alternating" && odd) ? 2 : 1;
        device.httpPort = run.firstHttpPort + i;
        device.rtspPort = run.firstRtspPort + i;
        device.toneHz = defaultTone(static_cast<size_t>(i));
        devices.push_back(device);
    }
    return devices;
}

bool loadDevices(const std::string& path, std::vector<DeviceSpec>& devices, std::string& error) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    if (!file) {
        error = path + ": cannot be read";
        return false;
    }
    Json::Value root;
    std::string parseErrors;
    if (!gwapi::parseJson(text.str(), root, parseErrors)) {
        error = path + ": not valid JSON: " + parseErrors;
        return false;
    }
    if (!root.isObject() || !root["devices"].isArray() || root["devices"].empty()) {
        error = path + ": expected {\"devices\": [ ... ]} with at least one device";
        return false;
    }
    devices.clear();
    for (Json::ArrayIndex i = 0; i < root["devices"].size(); ++i) {
        DeviceSpec device;
        if (!readDevice(root["devices"][i], i, device, error)) {
            error = path + ": " + error;
            return false;
        }
        devices.push_back(device);
    }
    return true;
}

std::string checkDevices(const std::vector<DeviceSpec>& devices) {
    if (devices.empty()) {
        return "no devices to simulate";
    }
    std::map<int, size_t> portOwners;
    std::set<std::string> ids;
    for (size_t i = 0; i < devices.size(); ++i) {
        const DeviceSpec& device = devices[i];
        const std::string problem = checkDevice(device);
        if (!problem.empty()) {
            return describe(device, i) + ": " + problem;
        }
        if (!ids.insert(device.deviceID).second) {
            return describe(device, i) + ": the device ID is used twice";
        }
        for (const int port : {device.httpPort, device.rtspPort}) {
            const auto owner = portOwners.emplace(port, i);
            if (!owner.second) {
                return describe(device, i) + ": port " + std::to_string(port) + " is also used by " +
                       describe(devices[owner.first->second], owner.first->second);
            }
        }
    }
    return "";
}

}  // namespace devsim
