// What one simulated device is: the identity it registers with the gateway and where it serves.
#pragma once

#include <string>
#include <vector>

namespace devsim {

constexpr int kTarn = 2;
constexpr int kTarn5 = 4;

struct DeviceSpec {
    int protocol = kTarn;  // 2 Tarn, 4 Tarn5
    std::string deviceID;  // the access ID: 1 to 31 printable characters, no spaces
    std::string name;      // 1 to 128 printable characters
    int category = 1;      // 1 or 2
    int httpPort = 0;      // TELMI interface on 127.0.0.1
    int rtspPort = 0;      // RTSP source on 127.0.0.1
    int toneHz = 440;      // the audio tone it streams, 100 to 3900 Hz
};

// A run of numbered devices on consecutive ports, as the command line describes it.
struct DeviceRun {
    int count = 1;
    int firstHttpPort = 18080;
    int firstRtspPort = 18554;
    std::string protocol = "alternating";  // "tarn", "tarn5" or "alternating"
    std::string category = "1";            // "1", "2" or "alternating"
    std::string namePrefix = "Simulated camera ";
    std::string idPrefix = "SIM";
};

const char* protocolName(int protocol);

std::vector<DeviceSpec> generateDevices(const DeviceRun& run);

// Reads {"devices": [{"deviceID", "name"?, "protocol"? ("tarn"|"tarn5"), "category"?,
// "httpPort", "rtspPort", "toneHz"?}, ...]}; false with a message naming the faulty entry.
bool loadDevices(const std::string& path, std::vector<DeviceSpec>& devices, std::string& error);

// Empty when the devices can run together; otherwise what is wrong, naming the device.
std::string checkDevices(const std::vector<DeviceSpec>& devices);

}  // namespace devsim
