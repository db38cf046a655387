// telmictl against the reference gateway (scripts/gateway.sh over a temporary home): its
// tables, its --json output, per-item reports of batches, passwords from standard input and
// its exit statuses.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "GatewayRun.h"

using namespace gwtest;

namespace {

const std::string kUserPassword = "Cam3ra!Pass";

// telmictl with the arguments (shell syntax) and input as its standard input.
Outcome telmictl(const std::string& arguments, const std::string& input) {
    return runCommand(std::string(ZQ_TELMICTL_PATH) + " " + arguments, input);
}

// As the gateway's admin, the password on standard input, before any further input lines.
Outcome admin(const GatewayRun& gateway, const std::string& arguments, const std::string& moreInput = "") {
    return telmictl("--gateway " + gateway.apiUrl("") + " " + arguments,
                    gateway.adminPassword() + "\n" + moreInput);
}

bool hasLine(const std::string& text, const std::string& line) {
    return ("\n" + text).find("\n" + line + "\n") != std::string::npos;
}

std::string indexAfter(const std::string& text, const std::string& prefix) {
    const size_t at = text.find(prefix);
    return at == std::string::npos ? "" : text.substr(at + prefix.size(), 36);
}

// A Tarn device CAM001 and a Tarn5 device CAM002 on stand-in addresses.
void addTwoDevices(GatewayRun& gateway) {
    gateway.start();
    for (const auto& [protocol, id, port] : {std::tuple("tarn", "CAM001", gateway.freePort(0)),
                                             std::tuple("tarn5", "CAM002", gateway.freePort(1))}) {
        const std::string address = "127.0.0.1:" + std::to_string(port);
        const Outcome added = admin(gateway, std::string("device add --protocol ") + protocol + " --id " + id +
                                                " --name 'Camera " + id + "' --telmi-address http://" + address +
                                                " --rtsp-address rtsp://" + address);
        ASSERT_EQ(added.status, 0) << added.err;
        EXPECT_EQ(added.out.rfind(std::string("device ") + id + " added, device index ", 0), 0u) << added.out;
    }
}

TEST(Telmictl, ListsPrintTablesOrTheApisJson) {
    GatewayRun gateway;
    addTwoDevices(gateway);
    const Outcome user = admin(gateway, "user add alice=CAM001", kUserPassword + "\n");
    ASSERT_EQ(user.status, 0) << user.out << user.err;
    const std::string userIndex = indexAfter(user.out, "alice: added, user index ");
    const Outcome bound = admin(gateway, "port bind CAM002");
    ASSERT_EQ(bound.status, 0) << bound.out << bound.err;
    const std::string httpPort = std::to_string(gateway.firstHttpPort());
    EXPECT_EQ(bound.out.rfind("CAM002: bound to HTTP port " + httpPort + " and RTSP port ", 0), 0u) << bound.out;
    const std::string portIndex = indexAfter(bound.out, ", port index ");

    Outcome devices = admin(gateway, "device list");
    EXPECT_EQ(devices.status, 0);
    EXPECT_EQ(devices.out.rfind("DEVICE INDEX                          PROTOCOL  DEVICE ID  NAME           CATEGORY",
                                0),
              0u)
        << devices.out;
    EXPECT_NE(devices.out.find("  tarn5     CAM002     Camera CAM002  1         http://"), std::string::npos)
        << devices.out;
    EXPECT_TRUE(hasLine(devices.out, "2 devices")) << devices.out;

    // The user and port tables name devices by their IDs, not their 36-character indexes.
    const Outcome users = admin(gateway, "user list");
    EXPECT_EQ(users.status, 0);
    EXPECT_EQ(users.out.rfind("USER INDEX                            NAME   DEVICE  ADDED\n" + userIndex +
                                  "  alice  CAM001  ",
                              0),
              0u)
        << users.out;
    EXPECT_TRUE(hasLine(users.out, "1 user")) << users.out;
    const Outcome ports = admin(gateway, "port list --max 1");
    EXPECT_NE(ports.out.find(portIndex + "  CAM002  " + httpPort + "  "), std::string::npos) << ports.out;
    EXPECT_NE(ports.out.find("  yes             yes             "), std::string::npos) << ports.out;

    // --json prints exactly what the API answers, and nothing else.
    for (const auto& [command, route] :
         {std::pair("device list", "/api/devices"), std::pair("user list", "/api/users"),
          std::pair("port list", "/api/ports"), std::pair("telmi status", "/api/telmi")}) {
        const Outcome json = admin(gateway, std::string("--json ") + command);
        EXPECT_EQ(json.status, 0) << command;
        EXPECT_EQ(json.json(), gateway.api("GET", route).json()) << command << ": " << json.out;
        EXPECT_EQ(json.err, "") << command;
    }

    EXPECT_EQ(admin(gateway, "telmi on").out, "TELMI access is on\n");
    EXPECT_EQ(admin(gateway, "telmi status").out, "TELMI access is on\n");
    // stderr is no terminal here, so the retry shows no progress.
    const Outcome retried = admin(gateway, "port retry " + portIndex);
    EXPECT_EQ(retried.status, 0) << retried.err;
    EXPECT_EQ(retried.out, "port index " + portIndex + ": HTTP listening yes, RTSP listening yes\n");
    EXPECT_EQ(retried.err, "");
}

TEST(Telmictl, BatchesReportEveryItemAndFailWhenOneFails) {
    GatewayRun gateway;
    addTwoDevices(gateway);

    Outcome run = admin(gateway, "user add alice=CAM001 bob=NOPE", kUserPassword + "\n");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.out.find("alice: added, user index "), std::string::npos) << run.out;
    EXPECT_TRUE(hasLine(run.out, "bob: failed: the device is not, or no longer, attached to the gateway (code 7)"))
        << run.out;
    EXPECT_EQ(run.err, "telmictl: 1 of 2 failed\n");
    const std::string userIndex = indexAfter(run.out, "alice: added, user index ");

    run = admin(gateway, "user del " + userIndex + " 00000000-0000-0000-0000-000000000000");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, userIndex + ": deleted\n00000000-0000-0000-0000-000000000000: failed: the device store holds "
                                   "nothing with that index (code 61002)\n");

    // --json: the API's per-item entries, still a failure.
    run = admin(gateway, "--json port bind NOPE CAM002");
    EXPECT_EQ(run.status, 1);
    const Json::Value results = run.json()["results"];
    ASSERT_EQ(results.size(), 2u) << run.out;
    EXPECT_EQ(results[0]["code"].asInt(), 7);
    EXPECT_EQ(results[1]["code"].asInt(), 0);

    // A refused call: the service's sentence and code, exit status 1.
    run = admin(gateway, "user mod not-an-index --name carol --device CAM001", kUserPassword + "\n");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("telmictl: HTTP 400: "), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("(code 1)\n"), std::string::npos) << run.err;
    EXPECT_EQ(run.out, "");

    // A weak user password is the library's verdict for that item.
    run = admin(gateway, "user add dave=CAM001", "abc\n");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.out.find("dave: failed: the password is too weak (code 257)"), std::string::npos) << run.out;

    run = telmictl("--gateway " + gateway.apiUrl("") + " device list", "wrong-password\n");
    EXPECT_EQ(run.status, 4);
    EXPECT_EQ(run.err, "telmictl: HTTP 401: the admin password was not accepted\n");
}

TEST(Telmictl, BadCommandLinesAndMissingInputStopBeforeAnyRequest) {
    TempHome dir;
    const std::string nowhere = "--gateway http://127.0.0.1:" + std::to_string(testPortBlock(1)) + " ";
    for (const char* usage : {"", "user", "user add bob", "port retry", "device add --protocol tarn9 --id X",
                              "device remove a b", "--password secret telmi status",
                              "--gateway ftp://127.0.0.1:8600 telmi status"}) {
        const Outcome run = telmictl(usage, "admin-password\n");
        EXPECT_EQ(run.status, 2) << usage << ": " << run.err;
        EXPECT_NE(run.err, "") << usage;
    }
    EXPECT_EQ(telmictl("--help", "").status, 0);

    Outcome run = telmictl(nowhere + "telmi status", "");
    EXPECT_EQ(run.status, 4);
    EXPECT_EQ(run.err, "telmictl: no gateway admin password on standard input\n");
    run = telmictl(nowhere + "user add alice=CAM001", "admin-password\n");
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err, "telmictl: no TELMI user password on standard input\n");
    run = telmictl(nowhere + "--admin-password-file " + dir.path() + "/none telmi status", "");
    EXPECT_EQ(run.status, 4);
    std::ofstream(dir.path() + "/admin-password") << "admin-password\n";
    run = telmictl(nowhere + "--admin-password-file " + dir.path() + "/admin-password telmi status", "");
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.err.rfind("telmictl: the management API cannot be reached", 0), 0u) << run.err;
}

}  // namespace
