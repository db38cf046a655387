#include "DeviceResources.h"

namespace devsim {

namespace {

Json::Value deviceInfo(const DeviceSpec& device) {
    Json::Value info;
    info["deviceID"] = device.deviceID;
    info["name"] = device.name;
    info["model"] = device.category == 1 ? "ZQ-SIM-IPC" : "ZQ-SIM-NVR";
    info["firmware"] = "1.0.0-sim";
    info["protocol"] = protocolName(device.protocol);
    info["category"] = device.category;
    return info;
}

Json::Value timeSettings() {
    Json::Value time;
    time["timeMode"] = "NTP";
    time["timeZone"] = "UTC+00:00";
    time["ntpServer"] = "pool.ntp.org";
    time["ntpIntervalMinutes"] = 60;
    return time;
}

Json::Value colorSettings() {
    Json::Value color;
    for (const char* field : {"brightness", "contrast", "saturation", "hue"}) {
        color[field] = 50;
    }
    return color;
}

// Each device gets its own example address, as if each were a camera on one LAN.
Json::Value networkInterface(const DeviceSpec& device) {
    Json::Value interface;
    interface["addressingType"] = "static";
    interface["ipAddress"] = "192.168.1." + std::to_string(10 + device.rtspPort % 240);
    interface["subnetMask"] = "255.255.255.0";
    interface["gateway"] = "192.168.1.1";
    interface["mtu"] = 1500;
    return interface;
}

}  // namespace

DeviceResources makeDeviceResources(const DeviceSpec& device) {
    using Checks = std::map<std::string, FieldCheck>;
    DeviceResources resources;
    resources["/TELMI/System/deviceInfo"] = std::make_unique<TelmiResource>(deviceInfo(device), Checks {});
    resources["/TELMI/System/time"] =
        std::make_unique<TelmiResource>(timeSettings(), Checks {{"timeMode", oneOf({"NTP", "manual"})},
                                                                {"timeZone", utcOffset()},
                                                                {"ntpServer", hostName()},
                                                                {"ntpIntervalMinutes", integerIn(1, 10080)}});
    resources["/TELMI/Image/channels/1/color"] =
        std::make_unique<TelmiResource>(colorSettings(), Checks {{"brightness", integerIn(0, 100)},
                                                                 {"contrast", integerIn(0, 100)},
                                                                 {"saturation", integerIn(0, 100)},
                                                                 {"hue", integerIn(0, 100)}});
    resources["/TELMI/Network/interfaces/1"] =
        std::make_unique<TelmiResource>(networkInterface(device), Checks {{"addressingType", oneOf({"static", "dhcp"})},
                                                                          {"ipAddress", ipv4Address()},
                                                                          {"subnetMask", ipv4Address()},
                                                                          {"gateway", ipv4Address()},
                                                                          {"mtu", integerIn(576, 9000)}});
    return resources;
}

}  // namespace devsim
