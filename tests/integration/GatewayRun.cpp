#include "GatewayRun.h"

#include "OwnedPort.h"

namespace gwtest {

const std::string kUserPassword = "Cam3ra!Pass";
const char* const kUri = "/TELMI/System/deviceInfo?format=json";

std::string localUrl(unsigned short port, const std::string& target) {
    return "http://127.0.0.1:" + std::to_string(port) + target;
}

Outcome digestCurl(unsigned short port, const std::string& user, const std::string& password,
                   const std::string& options, const std::string& target) {
    return curl(options + " --digest " + shellQuoted(localUrl(port, target)), user + ":" + password);
}

StandInDevice::StandInDevice(const std::string& name, unsigned short port) {
    const auto answer = [name](const httplib::Request& req, httplib::Response& res) {
        res.set_content("device=" + name + " method=" + req.method + " target=" + req.target +
                            " credentials=" + (req.has_header("Authorization") ? "yes" : "no"),
                        "text/plain");
    };
    server_.Get(".*", answer);
    // Stopping waits for connections kept alive, such as the one the gateway keeps to it.
    server_.set_keep_alive_timeout(1);
    EXPECT_TRUE(gwio::bindOwnedPort(server_, "127.0.0.1", port)) << "stand-in device port " << port;
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    while (!server_.is_running()) {
        std::this_thread::yield();
    }
}

StandInDevice::~StandInDevice() {
    server_.stop();
    thread_.join();
}

std::string deviceAnswer(const std::string& device) {
    return "200 device=" + device + " method=GET target=" + kUri + " credentials=no";
}

Outcome gatewayScript(const TempHome& home, const std::string& action) {
    return runCommand(std::string("ZQ_BUILD_DIR=") + ZQ_BUILD_DIR + " " + ZQ_GATEWAY_SCRIPT + " --home " +
                      shellQuoted(home.path()) + " " + action);
}

Outcome gatewayd(const TempHome& home, const std::string& arguments, const std::string& input) {
    return runCommand(
        std::string(ZQ_BUILD_DIR) + "/gateway/gatewayd/zqgatewayd " + arguments + " --home " + shellQuoted(home.path()),
        input);
}

GatewayRun::GatewayRun(int nonceLifetimeSec) : base_(testPortBlock(40)) {
    const unsigned short base = base_;
    EXPECT_TRUE(inChild(home_, [base, nonceLifetimeSec] {
        changeSettings([base, nonceLifetimeSec](ZQGateway::tagGatewaySettings& s) {
            s.managementPort = base;
            s.telmiUserPort = static_cast<uint16_t>(base + 1);
            s.httpPortFirst = static_cast<uint16_t>(base + 10);
            s.httpPortLast = static_cast<uint16_t>(base + 19);
            s.rtspPortFirst = static_cast<uint16_t>(base + 20);
            s.rtspPortLast = static_cast<uint16_t>(base + 29);
            s.nonceLifetimeSec = nonceLifetimeSec;
            s.allowedDeviceNetworks = {"127.0.0.0/8"};  // the stand-in and simulated devices
        });
    }));
}

void GatewayRun::start() {
    startOutput_ = script("start");
    std::getline(std::ifstream(home_.path() + "/admin-password"), adminPassword_);
    std::getline(std::ifstream(home_.path() + "/port-admin-password"), portPassword_);
    ASSERT_FALSE(adminPassword_.empty() || portPassword_.empty()) << startOutput_;
    ASSERT_NE(startOutput_.find("zqgatewayd: running"), std::string::npos) << startOutput_;
    ASSERT_NE(startOutput_.find("nginx: running"), std::string::npos) << startOutput_;
}

Outcome GatewayRun::telmictl(const std::string& arguments, const std::string& moreInput) const {
    return runCommand(
        std::string(ZQ_BUILD_DIR) + "/gateway/telmictl/telmictl --gateway " + apiUrl("") + " " + arguments,
        adminPassword_ + "\n" + moreInput);
}

Outcome GatewayRun::api(const std::string& method, const std::string& path, const std::string& body) const {
    const bool sendsBody = !body.empty() || method == "POST";
    return digestCurl(
        base_, "admin", adminPassword_,
        "-X " + method + (sendsBody ? " -H 'Content-Type: application/json' --data-binary " + shellQuoted(body) : ""),
        path);
}

std::string GatewayRun::registerDevice(int protocol, const std::string& deviceID, unsigned short port,
                                       unsigned short rtspPort) const {
    const Outcome reply =
        api("POST", "/api/devices",
            R"({"protocol":)" + std::to_string(protocol) + R"(,"deviceID":")" + deviceID + R"(","name":")" + deviceID +
                R"( camera","category":1,"telmiAddress":"http://127.0.0.1:)" + std::to_string(port) +
                R"(","rtspAddress":"rtsp://127.0.0.1:)" + std::to_string(rtspPort == 0 ? port : rtspPort) + R"("})");
    EXPECT_EQ(reply.status, 201) << reply.out;
    return reply.json()["deviceIndex"].asString();
}

testing::Matcher<std::string> StatusWith(int status, const std::string& text) {
    return AllOf(StartsWith(std::to_string(status) + " "), HasSubstr(text));
}

Json::Value firstResult(const Outcome& reply) {
    EXPECT_EQ(reply.status, 200) << reply.out;
    EXPECT_EQ(reply.json()["results"][0]["code"].asInt(), 0) << reply.out;
    return reply.json()["results"][0];
}

Json::Value bindPort(const GatewayRun& gateway, const std::string& deviceID) {
    return firstResult(gateway.api("POST", "/api/ports", "{\"deviceIDs\":[\"" + deviceID + "\"]}"));
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

TwoDevices::TwoDevices(GatewayRun& gateway) : tarn("tarn-cam", gateway.freePort(0)) {
    tarn5.emplace("tarn5-cam", gateway.freePort(1));
    gateway.start();
    gateway.registerDevice(2, "TARN0001", gateway.freePort(0));
    tarn5Index = gateway.registerDevice(4, "TARN50001", gateway.freePort(1));
    addUser(gateway, "tarnuser", "TARN0001");
    httpPort = static_cast<unsigned short>(bindPort(gateway, "TARN50001")["httpPort"].asUInt());
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

std::set<int> boundPorts(const GatewayRun& gateway) {
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
    const std::set<int> distinct(ports.begin(), ports.end());
    EXPECT_EQ(distinct.size(), ports.size()) << "a port handed out twice: " << list.out;
    return distinct;
}

testing::AssertionResult listenersInStep(const GatewayRun& gateway) {
    if (eventually([&gateway] { return listenedPorts(gateway) == boundPorts(gateway); })) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "listened on " << testing::PrintToString(listenedPorts(gateway)) << ", bound "
                                       << testing::PrintToString(boundPorts(gateway));
}

}  // namespace gwtest
