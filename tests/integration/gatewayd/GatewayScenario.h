// What the gateway's end-to-end tests share: a gateway with a Tarn device that has a TELMI user
// and a Tarn5 device with a port binding, and the client calls they make on it.
#pragma once

#include <json/json.h>

#include <optional>

#include "GatewayRun.h"

namespace gwtest {

extern const std::string kUserPassword;
extern const char* const kUri;  // the target every TELMI request below asks for

std::string url(unsigned short port);
// curl --digest with these options, for target (kUri by default) on 127.0.0.1:port.
Outcome digestCurl(unsigned short port, const std::string& user, const std::string& password,
                   const std::string& options = "", const std::string& target = kUri);
// The first item of a batch call's results, which must have succeeded.
Json::Value firstResult(const Outcome& reply);
void addUser(const GatewayRun& gateway, const std::string& name, const std::string& deviceID);
void switchTelmi(const GatewayRun& gateway, int enabled);
// What a stand-in device answers a forwarded request, with status 200.
std::string deviceAnswer(const std::string& device);

// The ports of the gateway's two ranges that something listens on.
std::set<int> listenedPorts(const GatewayRun& gateway);
// The HTTP and RTSP ports of every stored binding, each as often as it is handed out.
std::multiset<int> handedOutPorts(const GatewayRun& gateway);
std::set<int> boundPorts(const GatewayRun& gateway);

// A Tarn device with a TELMI user "tarnuser" and a Tarn5 device with a port binding, switch on.
struct TwoDevices {
    explicit TwoDevices(GatewayRun& gateway);
    StandInDevice tarn;
    std::optional<StandInDevice> tarn5;
    std::string tarn5Index;
    unsigned short httpPort = 0;
};

}  // namespace gwtest
