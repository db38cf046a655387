#include "GatewayScenario.h"

namespace gwtest {

const std::string kUserPassword = "Cam3ra!Pass";
const char* const kUri = "/TELMI/System/deviceInfo?format=json";

std::string url(unsigned short port) { return "http://127.0.0.1:" + std::to_string(port) + kUri; }

Outcome digestCurl(unsigned short port, const std::string& user, const std::string& password,
                   const std::string& options, const std::string& target) {
    return curl(options + " --digest " + shellQuoted("http://127.0.0.1:" + std::to_string(port) + target),
                user + ":" + password);
}

Json::Value firstResult(const Outcome& reply) {
    EXPECT_EQ(reply.status, 200) << reply.out;
    EXPECT_EQ(reply.json()["results"][0]["code"].asInt(), 0) << reply.out;
    return reply.json()["results"][0];
}

void addUser(const GatewayRun& gateway, const std::string& name, const std::string& deviceID) {
    firstResult(gateway.api("POST", "/api/users",
                            "{\"users\":[{\"userName\":\"" + name + "\",\"password\":\"" + kUserPassword +
                                "\",\"deviceID\":\"" + deviceID + "\"}]}"));
}

void switchTelmi(const GatewayRun& gateway, int enabled) {
    const Outcome reply = gateway.api("PUT", "/api/telmi", "{\"enabled\":" + std::to_string(enabled) + "}");
    ASSERT_EQ(reply.withOut(), "200 {\"enabled\":" + std::to_string(enabled) + "}\n");
}

std::string deviceAnswer(const std::string& device) {
    return "200 device=" + device + " method=GET target=" + kUri + " credentials=no";
}

TwoDevices::TwoDevices(GatewayRun& gateway) : tarn("tarn-cam", gateway.freePort(0)) {
    tarn5.emplace("tarn5-cam", gateway.freePort(1));
    gateway.start();
    gateway.registerDevice(2, "TARN0001", gateway.freePort(0));
    tarn5Index = gateway.registerDevice(4, "TARN50001", gateway.freePort(1));
    addUser(gateway, "tarnuser", "TARN0001");
    const Outcome bound = gateway.api("POST", "/api/ports", "{\"deviceIDs\":[\"TARN50001\"]}");
    httpPort = static_cast<unsigned short>(firstResult(bound)["httpPort"].asUInt());
    switchTelmi(gateway, 1);
}

std::set<int> listenedPorts(const GatewayRun& gateway) {
    std::set<int> ports;
    for (int port = gateway.firstHttpPort(); port < gateway.firstHttpPort() + 20; ++port) {
        if (listening(static_cast<unsigned short>(port))) {
            ports.insert(port);
        }
    }
    return ports;
}

std::multiset<int> handedOutPorts(const GatewayRun& gateway) {
    std::multiset<int> ports;
    const Outcome list = gateway.api("GET", "/api/ports?start=0&max=500");
    EXPECT_EQ(list.status, 200) << list.out;
    const Json::Value page = list.json();
    for (const Json::Value& port : page["ports"]) {
        ports.insert(port["httpPort"].asInt());
        if (port["rtspPort"].asInt() != 0) {
            ports.insert(port["rtspPort"].asInt());
        }
    }
    return ports;
}

std::set<int> boundPorts(const GatewayRun& gateway) {
    const std::multiset<int> ports = handedOutPorts(gateway);
    return {ports.begin(), ports.end()};
}

}  // namespace gwtest
