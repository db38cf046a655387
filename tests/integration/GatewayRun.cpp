#include "GatewayRun.h"

#include "OwnedPort.h"

namespace gwtest {
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

GatewayRun::~GatewayRun() { script("stop"); }

Outcome gatewayScript(const TempHome& home, const std::string& action) {
    return runCommand(std::string("ZQ_BUILD_DIR=") + ZQ_BUILD_DIR + " " + ZQ_GATEWAY_SCRIPT + " --home " +
                      shellQuoted(home.path()) + " " + action);
}

Outcome gatewayd(const TempHome& home, const std::string& arguments, const std::string& input) {
    return runCommand(
        std::string(ZQ_BUILD_DIR) + "/gateway/gatewayd/zqgatewayd " + arguments + " --home " + shellQuoted(home.path()),
        input);
}

std::string GatewayRun::script(const std::string& action) {
    const Outcome outcome = gatewayScript(home_, action);
    return outcome.out + outcome.err;
}

void GatewayRun::start() {
    startOutput_ = script("start");
    std::getline(std::ifstream(home_.path() + "/admin-password"), adminPassword_);
    std::getline(std::ifstream(home_.path() + "/port-admin-password"), portPassword_);
    ASSERT_FALSE(adminPassword_.empty() || portPassword_.empty()) << startOutput_;
    ASSERT_NE(startOutput_.find("zqgatewayd: running"), std::string::npos) << startOutput_;
    ASSERT_NE(startOutput_.find("nginx: running"), std::string::npos) << startOutput_;
}

std::string GatewayRun::apiUrl(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(base_) + path;
}

Outcome GatewayRun::telmictl(const std::string& arguments, const std::string& moreInput) const {
    return runCommand(
        std::string(ZQ_BUILD_DIR) + "/gateway/telmictl/telmictl --gateway " + apiUrl("") + " " + arguments,
        adminPassword_ + "\n" + moreInput);
}

Outcome GatewayRun::api(const std::string& method, const std::string& path, const std::string& body) const {
    std::string arguments = "--digest -X " + method;
    if (!body.empty() || method == "POST") {
        arguments += " -H 'Content-Type: application/json' --data-binary " + shellQuoted(body);
    }
    return curl(arguments + " " + shellQuoted(apiUrl(path)), "admin:" + adminPassword_);
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

}  // namespace gwtest
