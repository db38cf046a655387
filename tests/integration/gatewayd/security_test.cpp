// What a local user or a remote client must not be able to lift from a running gateway
// (scripts/gateway.sh over a temporary home): the services' users, the home's files, passwords
// on command lines, and device addresses that lead back into the gateway.
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <tuple>

#include "GatewayRun.h"
#include "ZQGatewayDevices.h"

using namespace gwtest;

namespace {

// Its own, since the watch sees the command lines of tests that run beside it.
const std::string kUserPassword = "Watch3d!Pass";

TEST(GatewaySecurity, ServicesRunAsTheServiceUserInAPrivateHomeShowNoPasswordAndRefuseDevicesLeadingBackIn) {
    GatewayRun gateway;
    const std::string home = gateway.home().path();
    // Every process's command line, over and over while the gateway starts and serves, as ps shows them.
    std::atomic<bool> watching {true};
    std::set<std::string> seen;
    std::thread watch([&] {
        while (watching) {
            std::error_code ignored;
            for (const auto& process : std::filesystem::directory_iterator("/proc", ignored)) {
                std::string line = fileText(process.path() / "cmdline");
                std::replace(line.begin(), line.end(), '\0', ' ');
                seen.insert(line);
            }
        }
    });
    gateway.start();
    ASSERT_EQ(gateway.api("PUT", "/api/telmi", R"({"enabled":1})").status, 200);
    gateway.registerDevice(2, "CAM001", gateway.freePort(0));
    EXPECT_EQ(gateway.telmictl("user add alice=CAM001", kUserPassword + "\n").withErr(), "0 ");
    EXPECT_EQ(curl(localUrl(gateway.userPort(), "/TELMI/x")).status, 401) << "a challenge: the nonce key exists";
    watching = false;
    watch.join();
    EXPECT_THAT(seen, testing::Contains(HasSubstr("zqmediad --home"))) << "the watch saw the gateway's programs";
    for (const std::string& secret : {gateway.adminPassword(), gateway.portPassword(), kUserPassword}) {
        EXPECT_THAT(seen, testing::Each(Not(HasSubstr(secret)))) << "a password on a command line";
        EXPECT_THAT(gateway.startOutput(), Not(HasSubstr(secret)));
        EXPECT_THAT(fileText(home + "/log/gateway.log"), Not(HasSubstr(secret)));
    }

    // The daemons, nginx's master and its workers: real, effective, saved and file system user ids.
    const bool root = ::geteuid() == 0;
    const passwd* serviceUser = ::getpwnam("zqgateway");
    ASSERT_TRUE(!root || serviceUser != nullptr) << "started by root, the gateway made its service user";
    const std::string uid = std::to_string(root ? serviceUser->pw_uid : ::getuid());
    std::istringstream processes(gatewayProcesses(gateway.home(), "ruid=,euid=,suid=,fsuid=,args="));
    int count = 0;
    for (std::string line; std::getline(processes, line); ++count) {
        EXPECT_THAT(line, ContainsRegex("^ *" + uid + " +" + uid + " +" + uid + " +" + uid + " "));
    }
    EXPECT_GE(count, 4) << "the daemons, nginx's master and at least one worker";
    EXPECT_THAT(fileText(home + "/nginx/nginx.conf"), Not(HasSubstr("\nuser "))) << "no user line to switch to";

    // Every file of the running home, the WAL and shm included, is its owner's alone.
    std::string secrets;
    for (const char* name :
         {"devices.db", "devices.db-wal", "devices.db-shm", "gateway.json", "nonce.key", "admin-password"}) {
        EXPECT_TRUE(std::filesystem::exists(home + "/" + name)) << name << " exists in a running home";
        secrets += " " + home + "/" + name;
    }
    EXPECT_EQ(runShell("find " + home + " -perm /077 -o ! -uid " + uid), "") << "open to others, or not the owner's";
    if (root) {
        EXPECT_EQ(runShell("for f in" + secrets +
                           "; do setpriv --reuid=nobody --regid=nogroup --clear-groups cat \"$f\" >/dev/null 2>&1 "
                           "&& echo \"$f\"; done"),
                  "")
            << "another local user reads none of the secrets";
    }

    // Its settings allow loopback devices (127.0.0.0/8), as the tests' devices need, but never the
    // gateway's own ports; link-local, multicast and named hosts no network allows.
    const std::string api = std::to_string(gateway.apiPort());
    for (const auto& [telmi, rtsp, why] : std::vector<std::tuple<std::string, std::string, std::string>> {
             {"", "rtsp://127.0.0.1:" + api, "leads to port " + api + " of the gateway itself"},
             {"http://[::ffff:127.0.0.1]:" + std::to_string(gateway.userPort()), "", "of the gateway itself"},
             {"http://169.254.10.1:80", "", "which no network of allowedDeviceNetworks holds"},
             {"", "rtsp://[ff02::1]:554", "a multicast address"},
             {"http://camera.example:80", "", "names are never resolved"}}) {
        const Outcome refused = gateway.api(
            "POST", "/api/devices",
            R"({"protocol":2,"deviceID":"BAD","telmiAddress":")" + telmi + R"(","rtspAddress":")" + rtsp + R"("})");
        EXPECT_EQ(refused.status, 400) << telmi << rtsp << ": " << refused.out;
        EXPECT_EQ(refused.json()["error"]["code"].asInt(), ZQGateway::storeAddressRefused) << refused.out;
        EXPECT_THAT(refused.json()["error"]["message"].asString(), HasSubstr(why));
    }
}

}  // namespace
