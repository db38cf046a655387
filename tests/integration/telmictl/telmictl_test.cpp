// telmictl against the reference gateway (scripts/gateway.sh over a temporary home): its
// tables, its --json output, per-item reports of batches, passwords from standard input and
// its exit statuses.
#include <gmock/gmock.h>

#include <fstream>
#include <string>

#include "GatewayRun.h"

using namespace gwtest;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

const std::string kUserPassword = "Cam3ra!Pass";

// telmictl with the arguments (shell syntax) and input as its standard input.
Outcome telmictl(const std::string& arguments, const std::string& input) {
    return runCommand(std::string(ZQ_TELMICTL_PATH) + " " + arguments, input);
}

// As the gateway's admin, the password on standard input, before any further input lines.
Outcome admin(const GatewayRun& gateway, const std::string& arguments, const std::string& moreInput = "") {
    return telmictl("--gateway " + gateway.apiUrl("") + " " + arguments, gateway.adminPassword() + "\n" + moreInput);
}

std::string indexAfter(const std::string& text, const std::string& prefix) {
    const size_t at = text.find(prefix);
    return at == std::string::npos ? "" : text.substr(at + prefix.size(), 36);
}

// A Tarn device CAM001 and a Tarn5 device CAM002 on stand-in addresses.
void addTwoDevices(GatewayRun& gateway) {
    gateway.start();
    for (const auto& [protocol, id, port] :
         {std::tuple("tarn", "CAM001", gateway.freePort(0)), std::tuple("tarn5", "CAM002", gateway.freePort(1))}) {
        const std::string address = "127.0.0.1:" + std::to_string(port);
        const Outcome added =
            admin(gateway, std::string("device add --protocol ") + protocol + " --id " + id + " --name 'Camera " + id +
                               "' --telmi-address http://" + address + " --rtsp-address rtsp://" + address);
        ASSERT_EQ(added.status, 0) << added.err;
        EXPECT_THAT(added.out, StartsWith(std::string("device ") + id + " added, device index "));
    }
}

TEST(Telmictl, ListsPrintTablesOrTheApisJson) {
    GatewayRun gateway;
    addTwoDevices(gateway);
    const Outcome user = admin(gateway, "user add alice=CAM001", kUserPassword + "\n");
    ASSERT_EQ(user.status, 0) << user.out << user.err;
    const std::string userIndex = indexAfter(user.out, "alice: added, user index ");
    const Outcome bound = admin(gateway, "port bind CAM002");
    const std::string httpPort = std::to_string(gateway.firstHttpPort());
    ASSERT_THAT(bound.withOut(), StartsWith("0 CAM002: bound to HTTP port " + httpPort + " and RTSP port "))
        << bound.err;
    const std::string portIndex = indexAfter(bound.out, ", port index ");

    const Outcome devices = admin(gateway, "device list");
    EXPECT_THAT(devices.withOut(),
                StartsWith("0 DEVICE INDEX                          PROTOCOL  DEVICE ID  NAME           CATEGORY"));
    EXPECT_THAT(devices.out, HasSubstr("  tarn5     CAM002     Camera CAM002  1         http://"));
    EXPECT_THAT(devices.out, HasSubstr("\n2 devices\n"));

    // The user and port tables name devices by their IDs, not their 36-character indexes.
    const Outcome users = admin(gateway, "user list");
    EXPECT_THAT(users.withOut(), StartsWith("0 USER INDEX                            NAME   DEVICE  ADDED\n" +
                                            userIndex + "  alice  CAM001  "));
    EXPECT_THAT(users.out, HasSubstr("\n1 user\n"));
    const Outcome ports = admin(gateway, "port list --max 1");
    EXPECT_THAT(ports.out, HasSubstr(portIndex + "  CAM002  " + httpPort + "  "));
    EXPECT_THAT(ports.out, HasSubstr("  yes             yes             "));
    // A key word with a space travels percent-encoded, and the Digest answer over it holds.
    EXPECT_THAT(admin(gateway, "port list --keyword 'camera cam002'").withOut(), StartsWith("0 PORT INDEX"));
    EXPECT_THAT(admin(gateway, "port list --keyword 'camera cam002'").out, HasSubstr(portIndex + "  CAM002  "));

    // --json prints exactly what the API answers, and nothing else.
    for (const auto& [command, route] :
         {std::pair("device list", "/api/devices?reach=1"), std::pair("user list", "/api/users"),
          std::pair("port list", "/api/ports"), std::pair("telmi status", "/api/telmi")}) {
        const Outcome json = admin(gateway, std::string("--json ") + command);
        EXPECT_EQ(json.withErr(), "0 ") << command;
        EXPECT_EQ(json.json(), gateway.api("GET", route).json()) << command << ": " << json.out;
    }

    EXPECT_EQ(admin(gateway, "telmi on").out, "TELMI access is on\n");
    EXPECT_EQ(admin(gateway, "telmi status").out, "TELMI access is on\n");
    // stderr is no terminal here, so the retry shows no progress.
    const Outcome retried = admin(gateway, "port retry " + portIndex);
    EXPECT_EQ(retried.withErr(), "0 ");
    EXPECT_EQ(retried.out, "port index " + portIndex + ": HTTP listening yes, RTSP listening yes\n");
}

TEST(Telmictl, BatchesReportEveryItemAndFailWhenOneFails) {
    GatewayRun gateway;
    addTwoDevices(gateway);

    Outcome run = admin(gateway, "user add alice=CAM001 bob=NOPE", kUserPassword + "\n");
    EXPECT_EQ(run.withErr(), "1 telmictl: 1 of 2 failed\n");
    EXPECT_THAT(run.out, HasSubstr("\nbob: failed: no Tarn or Tarn5 device with that access ID and a TELMI address is "
                                   "attached (see device list) (code 7)\n"));
    const std::string userIndex = indexAfter(run.out, "alice: added, user index ");

    run = admin(gateway, "user del " + userIndex + " 00000000-0000-0000-0000-000000000000");
    EXPECT_EQ(run.withOut(), "1 " + userIndex +
                                 ": deleted\n00000000-0000-0000-0000-000000000000: failed: the device "
                                 "store holds nothing with that index (code 61002)\n");

    // --json: the API's per-item entries, still a failure.
    run = admin(gateway, "--json port bind NOPE CAM002");
    EXPECT_EQ(run.status, 1);
    const Json::Value results = run.json()["results"];
    ASSERT_EQ(results.size(), 2u) << run.out;
    EXPECT_EQ(results[0]["code"].asInt(), 7);
    EXPECT_EQ(results[1]["code"].asInt(), 0);

    // A refused call: the service's sentence and code, exit status 1.
    run = admin(gateway, "user mod not-an-index --name carol --device CAM001", kUserPassword + "\n");
    EXPECT_EQ(run.withOut(), "1 ");
    EXPECT_THAT(run.err, testing::AllOf(StartsWith("telmictl: HTTP 400: "), testing::EndsWith("(code 1)\n")));

    // A weak user password is the library's verdict for that item.
    run = admin(gateway, "user add dave=CAM001", "abc\n");
    EXPECT_THAT(run.withOut(), StartsWith("1 dave: failed: the password is too weak: use at least 8 printable ASCII "));

    run = telmictl("--gateway " + gateway.apiUrl("") + " device list", "wrong-password\n");
    EXPECT_EQ(run.withErr(), "4 telmictl: HTTP 401: the admin password was not accepted\n");
}

TEST(Telmictl, BadCommandLinesAndMissingInputStopBeforeAnyRequest) {
    TempHome dir;
    const std::string nowhere = "--gateway http://127.0.0.1:" + std::to_string(testPortBlock(1)) + " ";
    for (const char* usage :
         {"", "user", "user add bob", "port retry", "device add --protocol tarn9 --id X", "device remove a b",
          "--password secret telmi status", "--gateway ftp://127.0.0.1:8600 telmi status"}) {
        const Outcome run = telmictl(usage, "admin-password\n");
        EXPECT_EQ(run.status, 2) << usage << ": " << run.err;
        EXPECT_NE(run.err, "") << usage;
    }
    EXPECT_EQ(telmictl("--help", "").status, 0);

    EXPECT_EQ(telmictl(nowhere + "telmi status", "").withErr(),
              "4 telmictl: no gateway admin password on standard input\n");
    EXPECT_EQ(telmictl(nowhere + "user add alice=CAM001", "admin-password\n").withErr(),
              "2 telmictl: no TELMI user password on standard input\n");
    EXPECT_EQ(telmictl(nowhere + "--admin-password-file " + dir.path() + "/none telmi status", "").status, 4);
    std::ofstream(dir.path() + "/admin-password") << "admin-password\n";
    const Outcome run = telmictl(nowhere + "--admin-password-file " + dir.path() + "/admin-password telmi status", "");
    EXPECT_THAT(run.withErr(), StartsWith("3 telmictl: the management API cannot be reached"));
}

}  // namespace
