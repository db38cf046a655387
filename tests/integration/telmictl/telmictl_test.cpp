// telmictl against the reference gateway (scripts/gateway.sh over a temporary home): its tables,
// its --json output, per-item reports of batches, records named by name or device ID, the two
// admin passwords, passwords from standard input and its exit statuses.

#include "GatewayRun.h"

using namespace gwtest;

namespace {

TEST(Telmictl, ListsPrintTablesOrTheApisJsonAndBatchesReportEveryItem) {
    GatewayRun gateway;
    TwoDevices devices(gateway);
    const std::string address = "127.0.0.1:" + std::to_string(gateway.freePort(2));
    EXPECT_THAT(gateway
                    .telmictl("device add --protocol tarn5 --id CAM3 --name 'Camera three' --telmi-address http://" +
                              address + " --rtsp-address rtsp://" + address)
                    .withOut(),
                StartsWith("0 device CAM3 added, device index "));
    const Json::Value user = gateway.api("GET", "/api/users").json()["users"][0];
    const Json::Value port = gateway.api("GET", "/api/ports").json()["ports"][0];
    const std::string httpPort = std::to_string(devices.httpPort);

    const Outcome deviceTable = gateway.telmictl("device list");
    EXPECT_THAT(deviceTable.withOut(),
                StartsWith("0 DEVICE INDEX                          PROTOCOL  DEVICE ID  NAME              CATEGORY"));
    EXPECT_THAT(deviceTable.out, HasSubstr("  tarn5     CAM3       Camera three      1         http://"));
    EXPECT_THAT(deviceTable.out, EndsWith("\n3 devices\n"));
    // The user and port tables name devices by their IDs, not their 36-character indexes.
    EXPECT_THAT(gateway.telmictl("user list").withOut(),
                StartsWith("0 USER INDEX                            NAME      DEVICE    ADDED\n" +
                           user["userIndex"].asString() + "  tarnuser  TARN0001  "));
    const Outcome portTable = gateway.telmictl("port list --max 1");
    EXPECT_THAT(portTable.out, HasSubstr(port["portIndex"].asString() + "  TARN50001  " + httpPort + "  "));
    EXPECT_THAT(portTable.out, HasSubstr("  yes             yes             "));
    // A key word with a space travels percent-encoded, and the Digest answer over it holds.
    EXPECT_THAT(gateway.telmictl("port list --keyword 'tarn50001 camera'").withOut(),
                AllOf(StartsWith("0 PORT INDEX"), HasSubstr(port["portIndex"].asString() + "  TARN50001  ")));

    // --json prints exactly what the API answers, and nothing else.
    for (const auto& [command, route] :
         {std::pair("device list", "/api/devices?reach=1"), std::pair("user list", "/api/users"),
          std::pair("port list", "/api/ports"), std::pair("telmi status", "/api/telmi")}) {
        const Outcome json = gateway.telmictl(std::string("--json ") + command);
        EXPECT_EQ(json.withErr(), "0 ") << command;
        EXPECT_EQ(json.json(), gateway.api("GET", route).json()) << command << ": " << json.out;
    }
    EXPECT_EQ(gateway.telmictl("telmi on").out, "TELMI access is on\n");
    EXPECT_EQ(gateway.telmictl("telmi status").out, "TELMI access is on\n");
    // stderr is no terminal here, so the retry shows no progress.
    EXPECT_EQ(gateway.telmictl("port retry " + port["portIndex"].asString()).withOut(),
              "0 port index " + port["portIndex"].asString() + ": HTTP listening yes, RTSP listening yes\n");
    // The device list finds by key word and asks the device whether it answers.
    devices.tarn5.reset();
    EXPECT_THAT(gateway.telmictl("device list --keyword tarn").out,
                ContainsRegex("TARN0001 .* online\n.*TARN50001 .* offline\n2 devices\n"));

    Outcome run = gateway.telmictl("user add alice=CAM3 bob=NOPE", kUserPassword + "\n");
    EXPECT_EQ(run.withErr(), "1 telmictl: 1 of 2 failed\n");
    EXPECT_THAT(run.out, HasSubstr("\nbob: failed: no Tarn or Tarn5 device with that access ID and a TELMI address is "
                                   "attached (see device list) (code 7)\n"));
    std::smatch added;
    ASSERT_TRUE(std::regex_search(run.out, added, std::regex("alice: added, user index (\\S+)"))) << run.out;
    const std::string userIndex = added[1];
    run = gateway.telmictl("user del " + userIndex + " 00000000-0000-0000-0000-000000000000");
    EXPECT_EQ(run.withOut(), "1 " + userIndex +
                                 ": deleted\n00000000-0000-0000-0000-000000000000: failed: the device "
                                 "store holds nothing with that index (code 61002)\n");
    // --json: the API's per-item entries, still a failure.
    run = gateway.telmictl("--json port bind NOPE CAM3");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.json()["results"][0]["code"].asInt(), 7) << run.out;
    EXPECT_EQ(run.json()["results"][1]["code"].asInt(), 0) << run.out;
    // A refused call: the service's sentence and code, exit status 1.
    run = gateway.telmictl("user mod not-an-index --name carol --device CAM3", kUserPassword + "\n");
    EXPECT_EQ(run.withOut(), "1 ");
    EXPECT_THAT(run.err, AllOf(StartsWith("telmictl: HTTP 400: "), EndsWith("(code 1)\n")));
    run = runCommand(std::string(ZQ_TELMICTL_PATH) + " --gateway " + gateway.apiUrl("") + " device list", "wrong\n");
    EXPECT_EQ(run.withErr(), "4 telmictl: HTTP 401: the admin password was not accepted\n");
}

TEST(Telmictl, QuickUsersRecordsByNameAndEachAdminPasswordChangedAlone) {
    GatewayRun gateway;
    TwoDevices devices(gateway);
    EXPECT_THAT(gateway.telmictl("user quick-add", kUserPassword + "\n").withOut(),
                StartsWith("0 device TARN50001: added user TARN50001, user index "));
    EXPECT_THAT(gateway.telmictl("user quick-add", kUserPassword + "\n").withErr(),
                AllOf(HasSubstr("1 telmictl: HTTP 404: no quick users were added: no eligible device: "),
                      EndsWith("(code 274)\n")));
    EXPECT_THAT(gateway.telmictl("port bind TARN0001").withOut(),
                HasSubstr("1 TARN0001: failed: no Tarn5 device with that access ID and both a TELMI and an RTSP "
                          "address is attached: port binding takes Tarn5 devices only"));
    EXPECT_THAT(gateway.telmictl("user add tarnuser2=TARN0001", kUserPassword + "\n").out,
                HasSubstr("the device already has a TELMI user: one account per device"));

    // Names and device IDs stand for indexes.
    const std::string newPassword = "An0ther!Pass";
    EXPECT_THAT(gateway.telmictl("user passwd tarnuser", newPassword + "\n").withOut(),
                EndsWith(" modified: tarnuser on device TARN0001\n"));
    EXPECT_EQ(digestCurl(gateway.userPort(), "tarnuser", newPassword).withOut(), deviceAnswer("tarn-cam"));
    EXPECT_EQ(gateway.telmictl("user del --name TARN50001 nobody").withErr(),
              "1 telmictl: no TELMI user is named \"nobody\"\n");
    EXPECT_THAT(gateway.telmictl("user del --name TARN50001").withOut(), EndsWith(": deleted\n"));
    EXPECT_THAT(gateway.telmictl("port unbind --device TARN50001").withOut(), EndsWith(": unbound\n"));

    // Port mode's password changes alone; a refused client is told which credential the port takes.
    const std::string apiUrl = shellQuoted(gateway.apiUrl("/api/telmi"));
    const auto port = static_cast<unsigned short>(bindPort(gateway, "TARN50001")["httpPort"].asUInt());
    const std::string newPort = "N3w-PortMode!";
    EXPECT_THAT(gateway.telmictl("port passwd", newPort + "\n").withOut(),
                StartsWith("0 password changed; every TELMI client of the device ports"));
    EXPECT_EQ(digestCurl(port, "admin", newPort).withOut(), deviceAnswer("tarn5-cam"));
    EXPECT_THAT(digestCurl(port, "admin", gateway.portPassword()).withOut(),
                StartsWith("401 authentication required as \"admin\" with the gateway's port-mode password "
                           "(not a TELMI user); 6 attempts left"));

    EXPECT_EQ(gateway.telmictl("admin passwd", "MyAdmin1\n").withErr(),
              "1 telmictl: HTTP 422: the password was not changed: the password is too weak: use at least 8 "
              "printable ASCII characters of at least two kinds (lower-case letters, upper-case letters, digits, "
              "other characters), not containing \"admin\" (code 257)\n");
    const std::string newAdmin = "N3w-Manager!";
    EXPECT_THAT(gateway.telmictl("admin passwd", newAdmin + "\n").withOut(),
                StartsWith("0 password changed; every client of the management API"));
    EXPECT_EQ(curl("--digest " + apiUrl, "admin:" + newAdmin).status, 200);
    EXPECT_EQ(curl("--digest " + apiUrl, "admin:" + gateway.adminPassword()).status, 401);
    EXPECT_EQ(digestCurl(port, "admin", newPort).status, 200);

    // A lost management password is replaced on the machine, without the old one.
    EXPECT_THAT(gatewayd(gateway.home(), "init").out,
                HasSubstr("already has a management API admin password, left as it is (zqgatewayd passwd changes it)"));
    EXPECT_THAT(gatewayd(gateway.home(), "passwd", "N3w-Offline!\n").withOut(),
                StartsWith("0 password changed; every client of the management API"));
    EXPECT_EQ(curl("--digest " + apiUrl, "admin:N3w-Offline!").status, 200);
}

TEST(Telmictl, BadCommandLinesAndMissingInputStopBeforeAnyRequest) {
    TempHome dir;
    const std::string telmictl = std::string(ZQ_TELMICTL_PATH) + " ";
    const std::string nowhere = telmictl + "--gateway http://127.0.0.1:" + std::to_string(testPortBlock(1)) + " ";
    for (const char* usage :
         {"", "user", "user add bob", "port retry", "device add --protocol tarn9 --id X", "device remove a b",
          "--password secret telmi status", "--gateway ftp://127.0.0.1:8600 telmi status"}) {
        const Outcome run = runCommand(telmictl + usage, "admin-password\n");
        EXPECT_EQ(run.status, 2) << usage << ": " << run.err;
        EXPECT_NE(run.err, "") << usage;
    }
    EXPECT_EQ(runCommand(telmictl + "--help").status, 0);
    EXPECT_EQ(runCommand(nowhere + "telmi status").withErr(),
              "4 telmictl: no gateway admin password on standard input\n");
    EXPECT_EQ(runCommand(nowhere + "user add alice=CAM001", "admin-password\n").withErr(),
              "2 telmictl: no TELMI user password on standard input\n");
    EXPECT_EQ(runCommand(nowhere + "--admin-password-file " + dir.path() + "/none telmi status").status, 4);
    std::ofstream(dir.path() + "/admin-password") << "admin-password\n";
    EXPECT_THAT(runCommand(nowhere + "--admin-password-file " + dir.path() + "/admin-password telmi status").withErr(),
                StartsWith("3 telmictl: the management API cannot be reached"));
}

}  // namespace
