// An administrator's everyday jobs through telmictl on a running gateway: lifting lock-outs,
// changing the two admin passwords, quick users, refusals that say what to do.
#include <gmock/gmock.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "gatewayd/GatewayScenario.h"

using namespace gwtest;
using testing::HasSubstr;

namespace {

const std::string kWrong = "Wrong!Pass1";

// telmictl (arguments in shell syntax) as the gateway's admin: the admin password on standard
// input, then moreInput.
Outcome telmictlAs(const GatewayRun& gateway, const std::string& arguments, const std::string& moreInput = "") {
    return runCommand(std::string(ZQ_TELMICTL_PATH) + " --gateway " + gateway.apiUrl("") + " " + arguments,
                      gateway.adminPassword() + "\n" + moreInput);
}

void lockOut(unsigned short port, const std::string& user) {
    for (int i = 0; i < 7; ++i) {
        digestCurl(port, user, kWrong);
    }
}

TEST(AdminJobs, LockOutsAreListedWithTheirUserOrPortAndLiftedBeforeTheirTime) {
    GatewayRun gateway;
    TwoDevices devices(gateway);
    lockOut(gateway.userPort(), "tarnuser");
    lockOut(devices.httpPort, "admin");
    ASSERT_EQ(digestCurl(gateway.userPort(), "tarnuser", kUserPassword).status, 401);

    const Outcome listed = telmictlAs(gateway, "lockout list");
    EXPECT_THAT(listed.withOut(), testing::StartsWith("0 REQUESTER  USER OR PORT   DEVICE     FAILURES  LOCKED FOR\n"));
    EXPECT_THAT(listed.out, HasSubstr("\n127.0.0.1  user tarnuser  TARN0001   7         1"));
    EXPECT_THAT(listed.out, HasSubstr("127.0.0.1  port " + std::to_string(devices.httpPort) + "     TARN50001  7"));

    EXPECT_EQ(telmictlAs(gateway, "lockout clear").status, 2);
    EXPECT_EQ(telmictlAs(gateway, "lockout clear --user nobody").withErr(),
              "1 telmictl: HTTP 404: no TELMI user is named \"nobody\" (code 61002)\n");
    EXPECT_EQ(telmictlAs(gateway, "lockout clear --user tarnuser").withOut(), "0 1 failure count cleared\n");
    EXPECT_EQ(digestCurl(gateway.userPort(), "tarnuser", kUserPassword).withOut(), deviceAnswer("tarn-cam"));
    EXPECT_EQ(digestCurl(devices.httpPort, "admin", gateway.portPassword()).status, 401);
    EXPECT_EQ(telmictlAs(gateway, "lockout clear --all").withOut(), "0 1 failure count cleared\n");
    EXPECT_EQ(digestCurl(devices.httpPort, "admin", gateway.portPassword()).withOut(), deviceAnswer("tarn5-cam"));

    // The log names what was locked, and who lifted it.
    std::ifstream log(gateway.home().path() + "/log/gateway.log");
    const std::string text(std::istreambuf_iterator<char>(log), {});
    EXPECT_THAT(text, HasSubstr("TELMI requester 127.0.0.1 is locked out of user \"tarnuser\""));
    EXPECT_THAT(text, HasSubstr("is locked out of port " + std::to_string(devices.httpPort)));
    EXPECT_THAT(text, HasSubstr("audit: admin from 127.0.0.1: DELETE /api/lockouts?user=tarnuser: 200, code 0, "
                                "cleared 1"));
}

TEST(AdminJobs, EachAdminPasswordChangesAloneAndOnlyToOneTheRatingAccepts) {
    GatewayRun gateway;
    TwoDevices devices(gateway);
    const std::string apiUrl = shellQuoted(gateway.apiUrl("/api/telmi"));

    EXPECT_EQ(telmictlAs(gateway, "admin passwd", "MyAdmin1\n").withErr(),
              "1 telmictl: HTTP 422: the password was not changed: the password is too weak: use at least 8 "
              "printable ASCII characters of at least two kinds (lower-case letters, upper-case letters, digits, "
              "other characters), not containing \"admin\" (code 257)\n");
    const std::string newAdmin = "N3w-Manager!";
    const Outcome changed = telmictlAs(gateway, "admin passwd", newAdmin + "\n");
    EXPECT_THAT(changed.withOut(), testing::StartsWith("0 password changed; every client of the management API"));
    EXPECT_EQ(curlAs("admin", newAdmin, "--digest " + apiUrl).status, 200);
    EXPECT_EQ(curlAs("admin", gateway.adminPassword(), "--digest " + apiUrl).status, 401);
    // Port mode keeps its own password until it is changed on its own.
    EXPECT_EQ(digestCurl(devices.httpPort, "admin", gateway.portPassword()).status, 200);

    const std::string newPort = "N3w-PortMode!";
    const Outcome port = runCommand(std::string(ZQ_TELMICTL_PATH) + " --gateway " + gateway.apiUrl("") + " port passwd",
                                    newAdmin + "\n" + newPort + "\n");
    EXPECT_THAT(port.withOut(), testing::StartsWith("0 password changed; every TELMI client of the device ports"));
    EXPECT_EQ(digestCurl(devices.httpPort, "admin", newPort).status, 200);
    // A refused port-mode client is told which credential the port takes.
    EXPECT_THAT(digestCurl(devices.httpPort, "admin", gateway.portPassword()).withOut(),
                testing::StartsWith("401 authentication required as \"admin\" with the gateway's port-mode password "
                                    "(not a TELMI user); 6 attempts left"));
    EXPECT_EQ(curlAs("admin", newPort, "--digest " + apiUrl).status, 401);

    // A lost management password is replaced on the machine, without the old one.
    const std::string home = " --home " + shellQuoted(gateway.home().path());
    EXPECT_THAT(runCommand(std::string(ZQ_GATEWAYD_PATH) + " init" + home).out,
                HasSubstr("already has a management API admin password, left as it is (zqgatewayd passwd changes it)"));
    EXPECT_THAT(runCommand(std::string(ZQ_GATEWAYD_PATH) + " passwd" + home, "N3w-Offline!\n").withOut(),
                testing::StartsWith("0 password changed; every client of the management API"));
    EXPECT_EQ(curlAs("admin", "N3w-Offline!", "--digest " + apiUrl).status, 200);
}

TEST(AdminJobs, QuickAddGivesOnlyDevicesWithoutAnAccountOneAndRecordsGoByNameOrKeyWord) {
    GatewayRun gateway;
    TwoDevices devices(gateway);
    const Outcome first = telmictlAs(gateway, "user quick-add", kUserPassword + "\n");
    EXPECT_THAT(first.withOut(), testing::StartsWith("0 device TARN50001: added user TARN50001, user index "));
    EXPECT_THAT(telmictlAs(gateway, "user quick-add", kUserPassword + "\n").withErr(),
                testing::AllOf(HasSubstr("1 telmictl: HTTP 404: no quick users were added: no eligible device: "),
                               testing::EndsWith("(code 274)\n")));

    EXPECT_THAT(telmictlAs(gateway, "port bind TARN0001").withOut(),
                HasSubstr("1 TARN0001: failed: no Tarn5 device with that access ID and both a TELMI and an RTSP "
                          "address is attached: port binding takes Tarn5 devices only"));
    EXPECT_THAT(telmictlAs(gateway, "user add tarnuser2=TARN0001", kUserPassword + "\n").out,
                HasSubstr("the device already has a TELMI user: one account per device"));

    // Names and device IDs stand for indexes.
    const std::string newPassword = "An0ther!Pass";
    EXPECT_THAT(telmictlAs(gateway, "user passwd tarnuser", newPassword + "\n").withOut(),
                testing::EndsWith(" modified: tarnuser on device TARN0001\n"));
    EXPECT_EQ(digestCurl(gateway.userPort(), "tarnuser", newPassword).withOut(), deviceAnswer("tarn-cam"));
    EXPECT_THAT(telmictlAs(gateway, "user del --name TARN50001 nobody").withErr(),
                "1 telmictl: no TELMI user is named \"nobody\"\n");
    EXPECT_THAT(telmictlAs(gateway, "user del --name TARN50001").withOut(), testing::EndsWith(": deleted\n"));
    EXPECT_THAT(telmictlAs(gateway, "port unbind --device TARN50001").withOut(), testing::EndsWith(": unbound\n"));
    EXPECT_EQ(gateway.api("GET", "/api/ports").json()["totalMatches"].asInt(), 0);

    // The device list finds by key word and asks the device whether it answers.
    devices.tarn5.reset();
    const Outcome found = telmictlAs(gateway, "device list --keyword tarn");
    EXPECT_THAT(found.out, testing::ContainsRegex("TARN0001 .* online\n.*TARN50001 .* offline\n2 devices\n"));
    EXPECT_THAT(telmictlAs(gateway, "device list --keyword 50001").out, testing::EndsWith("\n1 device\n"));
}

TEST(AdminJobs, TheRunningGatewayChecksItsEditedSettingsFile) {
    GatewayRun gateway;
    gateway.start();
    const std::string path = gateway.home().path() + "/gateway.json";
    std::ifstream in(path);
    const std::string valid((std::istreambuf_iterator<char>(in)), {});
    // Replaced whole, as an editor saves it: the service never reads half a file.
    const auto save = [&path](const std::string& text) {
        std::ofstream(path + ".new") << text;
        ASSERT_EQ(std::rename((path + ".new").c_str(), path.c_str()), 0);
    };
    save("{\"lockPeriodSecs\": 60, " + valid.substr(valid.find('{') + 1));
    EXPECT_EQ(telmictlAs(gateway, "config check").withOut(),
              "1 " + path + ": lockPeriodSecs: unknown key (did you mean \"lockPeriodSec\"?)\n");
    save(valid);
    EXPECT_EQ(telmictlAs(gateway, "config check").withOut(), "0 " + path + ": valid\n");
}

}  // namespace
