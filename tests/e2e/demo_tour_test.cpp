// The README's demo tour, asserted step by step over a temporary gateway home on test ports: the
// gateway as scripts/gateway.sh starts it, the demo's four simulated devices registered by
// zqdevsim, and the administrator's commands through telmictl --json. The tests are the tour's
// steps in order and share one gateway, so they run in one process (see CMakeLists.txt).
#include <gmock/gmock.h>

#include <fstream>
#include <memory>
#include <string>

#include "ChildProgram.h"
#include "GatewayRun.h"

using namespace gwtest;
using testing::HasSubstr;

namespace {

const std::string kAlicePassword = "Tour-Pass-001";
const std::string kCarolPassword = "Lock-Test-007";
const char* const kDeviceIDs[] = {"CAM001", "CAM002", "CAM003", "CAM004"};

class DemoTour : public testing::Test {
protected:
    static void SetUpTestSuite() {
        gateway_ = std::make_unique<GatewayRun>();
        gateway_->start();
        devices_ = startDevices();
    }
    static void TearDownTestSuite() {
        devices_.reset();
        gateway_.reset();
    }

    // The demo's devices (Tarn and Tarn5, cameras and recorders), registered by zqdevsim.
    static std::unique_ptr<Program> startDevices() {
        const std::string file = gateway_->home().path() + "/demo-devices.json";
        const char* const names[] = {"Front door", "Back yard", "Warehouse recorder", "Loading bay"};
        const char* const protocols[] = {"tarn", "tarn5", "tarn5", "tarn"};
        std::ofstream out(file);
        out << "{\"devices\": [";
        for (int i = 0; i < 4; ++i) {
            out << (i > 0 ? "," : "") << "{\"deviceID\": \"" << kDeviceIDs[i] << "\", \"name\": \"" << names[i]
                << "\", \"protocol\": \"" << protocols[i] << "\", \"category\": " << (i < 2 ? 1 : 2)
                << ", \"httpPort\": " << gateway_->freePort(i) << ", \"rtspPort\": " << gateway_->freePort(4 + i)
                << "}";
        }
        out << "]}\n";
        out.close();
        auto devsim = std::make_unique<Program>(
            std::vector<std::string> {ZQ_DEVSIM_PATH, "--devices", file, "--register", gateway_->apiUrl(""),
                                      "--admin-password-file", gateway_->home().path() + "/admin-password"});
        for (int i = 0; i < 4; ++i) {
            EXPECT_FALSE(devsim->readLine().empty()) << "zqdevsim prints a line per registered device";
        }
        return devsim;
    }

    // telmictl --json as the gateway's admin, with input after the admin password; its JSON.
    static Json::Value telmictl(const std::string& arguments, const std::string& input = "") {
        const Outcome run =
            runCommand(std::string(ZQ_TELMICTL_PATH) + " --json --gateway " + gateway_->apiUrl("") + " " + arguments,
                       gateway_->adminPassword() + "\n" + input);
        EXPECT_EQ(run.status, 0) << arguments << ": " << run.err;
        return run.json();
    }

    static std::string deviceIndex(const std::string& deviceID) {
        const Json::Value list = telmictl("device list");
        for (const Json::Value& device : list["devices"]) {
            if (device["deviceID"].asString() == deviceID) {
                return device["deviceIndex"].asString();
            }
        }
        return "";
    }

    // A TELMI request through the user-mode front end (or a device's own port); the HTTP status
    // and the body, and the answering device in deviceID.
    static Outcome telmiGet(const std::string& user, const std::string& password, unsigned short port,
                            std::string* deviceID = nullptr) {
        const Outcome answer =
            curlAs(user, password, "--digest -i http://127.0.0.1:" + std::to_string(port) + "/TELMI/System/deviceInfo");
        const size_t header = answer.out.rfind("X-Device-ID: ");
        if (deviceID != nullptr && header != std::string::npos) {
            *deviceID = answer.out.substr(header + 13, answer.out.find('\r', header) - header - 13);
        }
        return answer;
    }

    static std::unique_ptr<GatewayRun> gateway_;
    static std::unique_ptr<Program> devices_;
};

std::unique_ptr<GatewayRun> DemoTour::gateway_;
std::unique_ptr<Program> DemoTour::devices_;

TEST_F(DemoTour, StartsTheGatewayWithNginxAndRegistersTheFourDevices) {
    EXPECT_THAT(gateway_->startOutput(), HasSubstr("nginx: running"));
    const Json::Value devices = telmictl("device list")["devices"];
    ASSERT_EQ(devices.size(), 4u);
    for (const char* id : kDeviceIDs) {
        EXPECT_FALSE(deviceIndex(id).empty()) << id;
    }
}

TEST_F(DemoTour, AUserReachesItsDeviceThroughTheUserModeFrontEnd) {
    telmictl("telmi on");
    EXPECT_EQ(telmictl("user add alice=CAM001", kAlicePassword + "\n")["results"][0]["code"], 0);
    std::string device;
    const Outcome answer = telmiGet("alice", kAlicePassword, gateway_->userPort(), &device);
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(device, "CAM001");
    EXPECT_THAT(answer.out, HasSubstr("\"name\""));
}

TEST_F(DemoTour, TwoDevicesGetPortsOfTheirOwnForTelmiAndRtsp) {
    const Json::Value results = telmictl("port bind CAM002 CAM003")["results"];
    ASSERT_EQ(results.size(), 2u);
    for (const Json::Value& result : results) {
        EXPECT_EQ(result["code"], 0) << result["deviceID"];
        EXPECT_NE(result["httpPort"].asInt(), 0);
        EXPECT_NE(result["rtspPort"].asInt(), 0);
    }
    const Json::Value list = telmictl("port list");
    EXPECT_EQ(list["ports"].size(), 2u);
    for (const Json::Value& port : list["ports"]) {
        EXPECT_EQ(port["httpListening"].asInt(), 1) << port["deviceIndex"];
        EXPECT_EQ(port["rtspListening"].asInt(), 1) << port["deviceIndex"];
    }
    std::string device;
    const auto cam002Http = static_cast<unsigned short>(results[0]["httpPort"].asInt());
    EXPECT_EQ(telmiGet("admin", gateway_->portPassword(), cam002Http, &device).status, 200);
    EXPECT_EQ(device, "CAM002");
    const std::string stream = ffprobe(static_cast<unsigned short>(results[0]["rtspPort"].asInt()));
    EXPECT_THAT(stream, testing::StartsWith("pcm_mulaw,8000,")) << "the tone, relayed by the media daemon";
}

TEST_F(DemoTour, SevenWrongPasswordsLockAUserOutButNotAnother) {
    EXPECT_EQ(telmictl("user add carol=CAM003", kCarolPassword + "\n")["results"][0]["code"], 0);
    const unsigned short port = gateway_->userPort();
    for (int attempt = 1; attempt <= 7; ++attempt) {
        const Outcome refused = telmiGet("carol", "wrong-" + std::to_string(attempt), port);
        EXPECT_EQ(refused.status, 401) << "attempt " << attempt;
        if (attempt == 1) {
            EXPECT_THAT(refused.out, HasSubstr("6 attempts left"));
        } else if (attempt == 6) {
            EXPECT_THAT(refused.out, HasSubstr("1 attempt left"));
        }
    }
    const Outcome locked = telmiGet("carol", kCarolPassword, port);
    EXPECT_EQ(locked.status, 401);
    EXPECT_THAT(locked.out, HasSubstr("locked out"));
    EXPECT_EQ(telmiGet("alice", kAlicePassword, port).status, 200);
}

TEST_F(DemoTour, ARemovedDeviceTakesItsUsersAndPortsAlong) {
    const std::string cam003 = deviceIndex("CAM003");
    ASSERT_FALSE(cam003.empty());
    telmictl("device remove " + cam003);
    // The gateway releases the device's accounts on its notification thread, shortly after.
    const auto belongsToCam003 = [&cam003](const Json::Value& records) {
        for (const Json::Value& record : records) {
            if (record["deviceIndex"].asString() == cam003) {
                return true;
            }
        }
        return false;
    };
    Json::Value users, ports;
    for (int wait = 0; wait < 150; ++wait) {
        users = telmictl("user list --max 500")["users"];
        ports = telmictl("port list --max 500")["ports"];
        if (!belongsToCam003(users) && !belongsToCam003(ports)) {
            break;
        }
        runShell("sleep 0.1");
    }
    ASSERT_EQ(users.size(), 1u) << "carol released, alice kept";
    EXPECT_EQ(users[0]["userName"], "alice");
    ASSERT_EQ(ports.size(), 1u) << "CAM003's binding released, CAM002's kept";
    EXPECT_EQ(ports[0]["deviceIndex"].asString(), deviceIndex("CAM002"));
}

}  // namespace
