// The README's demo tour (scripts/demo.sh), asserted step by step on test ports: the whole
// gateway as scripts/gateway.sh starts it, the demo's four simulated devices registered by
// zqdevsim, and the administrator's commands through telmictl --json. The steps build on each
// other, so they are one test.

#include "GatewayRun.h"

using namespace gwtest;

namespace {

TEST(DemoTour, FromTheAdministratorsCommandLineToATelmiRequestAnRtspStreamALockOutAndARemoval) {
    GatewayRun gateway;
    gateway.start();
    // The demo's devices (Tarn and Tarn5, cameras and recorders), registered by zqdevsim.
    const auto device = [&gateway](int n, const char* protocol, int category) {
        const std::string id = "CAM00" + std::to_string(n);
        return "{\"deviceID\": \"" + id + "\", \"name\": \"Camera " + id + "\", \"protocol\": \"" + protocol +
               "\", \"category\": " + std::to_string(category) +
               ", \"httpPort\": " + std::to_string(gateway.freePort(n)) +
               ", \"rtspPort\": " + std::to_string(gateway.freePort(4 + n)) + "}";
    };
    const std::string file = gateway.home().path() + "/demo-devices.json";
    std::ofstream(file) << "{\"devices\": [" << device(1, "tarn", 1) << "," << device(2, "tarn5", 1) << ","
                        << device(3, "tarn5", 2) << "," << device(4, "tarn", 2) << "]}\n";
    Program devsim({ZQ_DEVSIM_PATH, "--devices", file, "--register", gateway.apiUrl(""), "--admin-password-file",
                    gateway.home().path() + "/admin-password"});
    for (int i = 0; i < 4; ++i) {
        ASSERT_FALSE(devsim.readLine().empty()) << "zqdevsim prints a line per registered device";
    }
    const auto telmictl = [&gateway](const std::string& arguments, const std::string& input = "") {
        const Outcome run = gateway.telmictl("--json " + arguments, input);
        EXPECT_EQ(run.status, 0) << arguments << ": " << run.err;
        return run.json();
    };
    std::map<std::string, std::string> deviceIndexes;
    const Json::Value devices = telmictl("device list");
    for (const Json::Value& device : devices["devices"]) {
        deviceIndexes[device["deviceID"].asString()] = device["deviceIndex"].asString();
    }
    ASSERT_EQ(deviceIndexes.size(), 4u);
    // A TELMI request through the user-mode front end or a device's own port; the answering device
    // names itself in a header.
    const auto telmiGet = [](const std::string& user, const std::string& password, unsigned short port) {
        return digestCurl(port, user, password, "-i", "/TELMI/System/deviceInfo");
    };

    // 1. A TELMI user for CAM001 and a request through the user-mode port.
    telmictl("telmi on");
    const std::string alicePassword = "Tour-Pass-001";
    EXPECT_EQ(telmictl("user add alice=CAM001", alicePassword + "\n")["results"][0]["code"], 0);
    EXPECT_THAT(telmiGet("alice", alicePassword, gateway.userPort()).withOut(),
                AllOf(StatusWith(200, "X-Device-ID: CAM001\r\n"), HasSubstr("\"name\"")));

    // 2. Ports of their own for CAM002 and CAM003, and a request through CAM002's port; 3. CAM002's
    // RTSP stream played through the gateway.
    const Json::Value results = telmictl("port bind CAM002 CAM003")["results"];
    ASSERT_EQ(results.size(), 2u);
    const auto cam002Http = static_cast<unsigned short>(results[0]["httpPort"].asInt());
    EXPECT_THAT(telmiGet("admin", gateway.portPassword(), cam002Http).withOut(),
                StatusWith(200, "X-Device-ID: CAM002\r\n"));
    EXPECT_THAT(ffprobe(static_cast<unsigned short>(results[0]["rtspPort"].asInt())), StartsWith("pcm_mulaw,8000,"))
        << "the tone, relayed by the media daemon";

    // 4. Seven wrong passwords for another user, and the lock-out that then refuses even the right one.
    const std::string carolPassword = "Lock-Test-007";
    EXPECT_EQ(telmictl("user add carol=CAM003", carolPassword + "\n")["results"][0]["code"], 0);
    for (int attempt = 1; attempt <= 7; ++attempt) {
        const Outcome refused = telmiGet("carol", "wrong-" + std::to_string(attempt), gateway.userPort());
        EXPECT_EQ(refused.status, 401) << "attempt " << attempt;
        EXPECT_THAT(refused.out, HasSubstr(attempt == 1 ? "6 attempts left" : attempt == 6 ? "1 attempt left" : ""));
    }
    EXPECT_THAT(telmiGet("carol", carolPassword, gateway.userPort()).withOut(), StatusWith(401, "locked out"));
    EXPECT_EQ(telmiGet("alice", alicePassword, gateway.userPort()).status, 200);

    // 5. CAM003 removed, and its TELMI user and port binding gone (on the gateway's notification
    // thread, shortly after).
    telmictl("device remove " + deviceIndexes["CAM003"]);
    Json::Value users, ports;
    EXPECT_TRUE(eventually([&] {
        users = telmictl("user list --max 500")["users"];
        ports = telmictl("port list --max 500")["ports"];
        return users.size() == 1 && ports.size() == 1;
    })) << users
        << ports;
    EXPECT_EQ(users[0]["userName"], "alice");
    EXPECT_EQ(ports[0]["deviceIndex"].asString(), deviceIndexes["CAM002"]);
}

}  // namespace
