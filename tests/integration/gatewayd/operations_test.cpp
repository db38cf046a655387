// An administrator's operations on real homes: ports owned by one gateway, settings checked
// before a start and while running, log rotation, backup and restore.
#include <unistd.h>

#include "GatewayRun.h"

namespace gwtest {
namespace {

TEST(Operations, InvalidSettingsAreRefusedByCheckAndStart) {
    const struct {
        const char* text;
        const char* problem;
    } cases[] = {
        {R"({"managementPort": 99999})", "managementPort: 99999 is out of range (1..65535)"},
        {R"({"httpPorts": [20999, 20000]})", "httpPorts: the first port 20999 comes after the last 20000"},
        {R"({"lockPeriodSec": -1})", "lockPeriodSec: -1 is out of range (1..)"},
        {R"({"logLevel": 9})", "logLevel: 9 is not a log level"},
        {R"({"lockPeriodSecs": 60})", "lockPeriodSecs: unknown key (did you mean \"lockPeriodSec\"?)"},
        {R"({"httpPorts": [30000, 30010]})", "rtspPorts: overlaps httpPorts"},
        {R"({"telmiUserPort": 20005})", "telmiUserPort: 20005 lies in httpPorts"},
        {R"({"realm": 7})", "realm: 7 is not a string"},
        {"{\n  \"realm\": \"TELMI\",\n  oops\n}", "gateway.json: not valid JSON: line 3, column 3: "},
    };
    for (const auto& c : cases) {
        TempHome home;
        std::ofstream(home.path() + "/gateway.json") << c.text;
        EXPECT_THAT(gatewayd(home, "check").withErr(), StatusWith(1, c.problem)) << c.text;
        const Outcome started = gatewayScript(home, "start");
        EXPECT_THAT(started.err, HasSubstr(c.problem)) << c.text;
        EXPECT_NE(started.status, 0) << c.text;
        EXPECT_EQ(fileText(home.path() + "/gateway.json"), c.text);
    }
    TempHome home;
    std::ofstream(home.path() + "/gateway.json") << R"({"logLevel": "debug", "telmiUserPort": 0})";
    EXPECT_EQ(gatewayd(home, "check").status, 0);
}

TEST(Operations, ASecondHomeRefusesTheFirstsPortsLogsReopenAndABackupOfTheRunningHomeRestoresIntoTheSecond) {
    GatewayRun original;
    TwoDevices devices(original);
    GatewayRun fresh;
    const unsigned short taken = original.apiPort();
    ASSERT_TRUE(inChild(fresh.home(), [taken] {
        changeSettings([taken](ZQGateway::tagGatewaySettings& s) { s.managementPort = taken; });
    }));
    const std::string refused = fresh.script("start");
    EXPECT_THAT(refused,
                AllOf(HasSubstr("managementPort " + std::to_string(taken) + " is already in use by nginx (pid "),
                      Not(HasSubstr("zqgatewayd: running"))));
    fresh.script("stop");  // the media daemon it started
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(original.api("GET", "/api/telmi").status, 200) << "the first gateway alone answers, every time";
    }

    // A hang-up reopens the log after its rotation.
    const std::string log = original.home().path() + "/log/gateway.log";
    ASSERT_EQ(std::rename(log.c_str(), (log + ".1").c_str()), 0);
    runShell("kill -HUP " + std::to_string(pidIn(original.home(), "run/gatewayd.pid")) + " " +
             std::to_string(pidIn(original.home(), "run/mediad.pid")));
    EXPECT_TRUE(eventually([&log] {
        const std::string text = fileText(log);
        return text.find("[GATEWAYD] log files reopened") != std::string::npos &&
               text.find("[MEDIAD] log file reopened") != std::string::npos;
    }));
    EXPECT_THAT(original.script("status"), AllOf(HasSubstr("zqgatewayd: running"), HasSubstr("zqmediad: running")));

    // The running service checks its settings file as an editor saves it: replaced whole.
    const std::string path = original.home().path() + "/gateway.json";
    const std::string valid = fileText(path);
    const auto save = [&path](const std::string& text) {
        std::ofstream(path + ".new") << text;
        ASSERT_EQ(std::rename((path + ".new").c_str(), path.c_str()), 0);
    };
    save("{\"lockPeriodSecs\": 60, " + valid.substr(valid.find('{') + 1));
    EXPECT_EQ(original.telmictl("config check").withOut(),
              "1 " + path + ": lockPeriodSecs: unknown key (did you mean \"lockPeriodSec\"?)\n");
    save(valid);
    EXPECT_EQ(original.telmictl("config check").withOut(), "0 " + path + ": valid\n");

    // A backup of the running home takes its settings, users, bindings, lock-outs and admin
    // password into the second home.
    for (int i = 0; i < 7; ++i) {
        digestCurl(original.userPort(), "tarnuser", "wrong");
    }
    ASSERT_EQ(digestCurl(original.userPort(), "tarnuser", kUserPassword).status, 401);  // locked out
    const std::string users = original.api("GET", "/api/users").out;
    const std::string ports = original.api("GET", "/api/ports").out;
    const std::string backup = original.home().path() + "/../" + "backup-" + std::to_string(original.apiPort());
    ASSERT_EQ(gatewayd(original.home(), "backup " + shellQuoted(backup)).withErr(), "0 ");
    EXPECT_EQ(runShell("stat -c %a " + shellQuoted(backup)), "600\n");
    EXPECT_THAT(gatewayd(original.home(), "restore " + shellQuoted(backup)).err, HasSubstr("is running (zqgatewayd)"));
    original.script("stop");
    const Outcome restored = gatewayd(fresh.home(), "restore " + shellQuoted(backup));
    ::unlink(backup.c_str());
    ASSERT_EQ(restored.status, 0) << restored.err;
    fresh.start();
    EXPECT_EQ(original.api("GET", "/api/users").out, users);
    EXPECT_EQ(original.api("GET", "/api/ports").out, ports);
    EXPECT_EQ(original.api("GET", "/api/telmi").out, "{\"enabled\":1}\n");
    EXPECT_EQ(digestCurl(original.userPort(), "tarnuser", kUserPassword).status, 401);  // still locked out
    EXPECT_EQ(digestCurl(devices.httpPort, "admin", original.portPassword()).withOut(), deviceAnswer("tarn5-cam"));
}

}  // namespace
}  // namespace gwtest
