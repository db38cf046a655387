// The reference gateway end to end: scripts/gateway.sh starts zqmediad and zqgatewayd (which
// loads the real library and starts nginx) over a temporary home; curl and Python requests are
// the clients; stand-in devices answer the forwarded TELMI requests.

#include "GatewayRun.h"

using namespace gwtest;

namespace {

TEST(GatewayService, TelmiRequestsReachTheirDevicesInBothModesAndWithStaleNoncesOnlyWhileSwitchedOn) {
    GatewayRun gateway(2);  // so that a nonce goes stale within the test
    TwoDevices devices(gateway);
    const unsigned short userPort = gateway.userPort();
    const auto asUser = [&] { return digestCurl(userPort, "tarnuser", kUserPassword); };
    const auto asAdmin = [&] { return digestCurl(devices.httpPort, "admin", gateway.portPassword()); };

    EXPECT_EQ(asAdmin().withOut(), deviceAnswer("tarn5-cam"));
    // The device restarts: the connection the gateway kept open to it is gone.
    devices.tarn5.reset();
    devices.tarn5.emplace("tarn5-cam", gateway.freePort(1));
    EXPECT_EQ(asAdmin().withOut(), deviceAnswer("tarn5-cam"));
    // Port mode takes the gateway's admin only, user mode its TELMI users only.
    EXPECT_EQ(digestCurl(devices.httpPort, "tarnuser", kUserPassword).status, 401);
    EXPECT_EQ(digestCurl(userPort, "admin", gateway.portPassword()).status, 401);

    // The second request opens with the first one's nonce, stale by then (lifetime 2 s): told
    // apart, it is answered again with the fresh nonce unasked.
    EXPECT_THAT(pythonDigestGet(localUrl(userPort), "tarnuser", kUserPassword, "3.5").withOut(),
                AllOf(StartsWith("200 "), HasSubstr("stale=\"TRUE\""), HasSubstr(deviceAnswer("tarn-cam").substr(4))));

    // Switched off, both front ends refuse while the API goes on working.
    switchTelmi(gateway, 0);
    EXPECT_EQ(asUser().status, 403);
    EXPECT_EQ(asAdmin().status, 403);
}

TEST(GatewayService, SevenWrongPasswordsLockARequesterOutPerModeAndAddressFamilyUntilTelmictlLiftsIt) {
    GatewayRun gateway;
    TwoDevices devices(gateway);
    struct Mode {
        std::string url, user, password;
    };
    const bool ipv6 = Listener(gateway.freePort(5), Listener::Family::ipv6Only).ok();
    std::vector<Mode> modes {{localUrl(gateway.userPort()), "tarnuser", kUserPassword},
                             {localUrl(devices.httpPort), "admin", gateway.portPassword()}};
    if (ipv6) {  // [::1] is a requester of its own, kept apart from 127.0.0.1 locked out just before
        modes.push_back({"http://[::1]:" + std::to_string(devices.httpPort) + kUri, "admin", gateway.portPassword()});
    }
    for (const Mode& mode : modes) {
        SCOPED_TRACE(mode.url);
        const auto as = [&mode](const std::string& password) {
            return curl("--digest " + shellQuoted(mode.url), mode.user + ":" + password);
        };
        // Requests without credentials, as a browser opening a page sends them, never count.
        for (int i = 0; i < 10; ++i) {
            EXPECT_EQ(curl(shellQuoted(mode.url)).status, 401);
        }
        for (int i = 0; i < 6; ++i) {
            EXPECT_EQ(as("Wrong!Pass1").status, 401);
        }
        EXPECT_EQ(as(mode.password).status, 200);  // and the count starts again
        for (int i = 1; i <= 7; ++i) {
            const Outcome reply = as("Wrong!Pass1");
            EXPECT_EQ(reply.status, 401);
            EXPECT_EQ(reply.out.find("locked out") != std::string::npos, i == 7) << i << ": " << reply.out;
        }
        EXPECT_THAT(as(mode.password).withOut(), StartsWith("401 too many failed attempts: locked out for "));
    }

    const Outcome listed = gateway.telmictl("lockout list");
    EXPECT_THAT(listed.withOut(), StartsWith("0 REQUESTER "));
    EXPECT_THAT(listed.out, ContainsRegex("\n127.0.0.1 +user tarnuser +TARN0001 +7 +1"));
    EXPECT_THAT(listed.out, ContainsRegex("\n127.0.0.1 +port " + std::to_string(devices.httpPort) + " +TARN50001 +7 "));
    EXPECT_EQ(gateway.telmictl("lockout clear").status, 2);
    EXPECT_EQ(gateway.telmictl("lockout clear --user nobody").withErr(),
              "1 telmictl: HTTP 404: no TELMI user is named \"nobody\" (code 61002)\n");
    EXPECT_EQ(gateway.telmictl("lockout clear --user tarnuser").withOut(), "0 1 failure count cleared\n");
    EXPECT_EQ(digestCurl(gateway.userPort(), "tarnuser", kUserPassword).withOut(), deviceAnswer("tarn-cam"));
    EXPECT_EQ(digestCurl(devices.httpPort, "admin", gateway.portPassword()).status, 401);
    if (ipv6) {  // shown as its /64, and cleared by it
        EXPECT_THAT(listed.out, ContainsRegex("\n::/64 +port " + std::to_string(devices.httpPort) + " "));
        EXPECT_EQ(gateway.telmictl("lockout clear --requester ::/64").withOut(), "0 1 failure count cleared\n");
    }
    EXPECT_EQ(gateway.telmictl("lockout clear --all").withOut(), "0 1 failure count cleared\n");
    EXPECT_EQ(digestCurl(devices.httpPort, "admin", gateway.portPassword()).withOut(), deviceAnswer("tarn5-cam"));

    // The log names what was locked, and who lifted it.
    const std::string text = fileText(gateway.home().path() + "/log/gateway.log");
    EXPECT_THAT(text, HasSubstr("TELMI requester 127.0.0.1 is locked out of user \"tarnuser\""));
    EXPECT_THAT(text, HasSubstr("is locked out of port " + std::to_string(devices.httpPort)));
    EXPECT_THAT(text, HasSubstr("audit: admin from 127.0.0.1: DELETE /api/lockouts?user=tarnuser: 200, code 0, "
                                "cleared 1"));
}

TEST(ManagementApi, RefusesBadInputWithoutChangingAnythingAndRemovesDevicesWithTheirAccountsAndPorts) {
    GatewayRun gateway;
    TwoDevices devices(gateway);
    const std::string userIndex = gateway.api("GET", "/api/users").json()["users"][0]["userIndex"].asString();
    struct Case {
        const char* method;
        std::string path, body, message;
    };
    // A batch of users for TARN50001, and one of them by its name (JSON) and password.
    const auto batch = [](const std::string& items) { return "{\"users\":[" + items + "]}"; };
    const auto user = [](const std::string& name, const std::string& password = kUserPassword) {
        return "{\"userName\":" + name + ",\"password\":\"" + password + "\",\"deviceID\":\"TARN50001\"}";
    };
    std::string tooMany = "{\"deviceIDs\":[\"D\"";
    for (int i = 0; i < 1000; ++i) {
        tooMany += ",\"D\"";
    }
    const Case cases[] = {
        {"PUT", "/api/telmi", "[1]", "must be a JSON object"},
        {"PUT", "/api/telmi", "{\"enabled\":" + std::string(16, '[') + std::string(16, ']') + "}", "deeper than 16"},
        {"PUT", "/api/telmi", "{\"enabled\":\"0\"}", "\"enabled\" must be an integer"},
        {"PUT", "/api/telmi", "{\"enabled\":1,\"note\":\"\\udc00\"}", "not UTF-8"},
        {"PUT", "/api/telmi", "{\"enabled\":1,\"note\":\"\xf4\x90\x80\x80\"}", "not UTF-8"},  // past U+10FFFF
        {"PUT", "/api/telmi", "{\"enabled\":0.5}", "\"enabled\" must be an integer"},
        {"PUT", "/api/telmi", "{\"enabled\":1,\"enabled\":0}", "not valid JSON"},
        {"PUT", "/api/telmi", "{\"enabled\":1} x", "not valid JSON"},
        {"PUT", "/api/telmi", "{}", "\"enabled\" is missing"},
        {"PUT", "/api/telmi", "{\"enabled\":4294967297}", "\"enabled\" must be between 0 and 1"},
        {"POST", "/api/users", "{\"users\":[7]}", "\"users\" item 0 must be an object"},
        {"POST", "/api/users", "{\"users\":[{\"userName\":\"a\\u0000b\"}]}", "contains a NUL character"},
        {"POST", "/api/ports", "{\"deviceIDs\":\"D\"}", "\"deviceIDs\" must be an array"},
        {"POST", "/api/ports", tooMany + "]}", "1 to 1000 items"},
        {"POST", "/api/users", batch(user("\"fine\"") + "," + user("7")), "\"userName\" must be a string"},
        {"POST", "/api/users", batch(user("\"" + std::string(33, 'n') + "\"")), "longer than 32"},
        {"POST", "/api/users", batch(user("\"fine\"", "Cam3ra!Pass-too-long")), "longer than 16"},
        {"POST", "/api/users", "{\"users\":[]}", "1 to 1000 items"},
        {"PUT", "/api/users/" + userIndex, "{\"userName\":\"renamed\",\"password\":\"Cam3ra!Pass\"}",
         "\"deviceID\" is missing"},
        {"POST", "/api/users/delete", "{\"userIndexes\":[\"" + userIndex + "\",7]}", "must be a string"},
        {"POST", "/api/ports", "{\"deviceIDs\":[\"" + std::string(32, 'D') + "\"]}", "longer than 31"},
        {"GET", "/api/users?start=501", "", "between 0 and 500"},
        {"GET", "/api/ports?max=ten", "", "decimal number"},
        {"GET", "/api/users?keyword=" + std::string(129, 'k'), "", "longer than 128"},
        {"POST", "/api/devices", "{\"protocol\":3,\"deviceID\":\"NEW1\"}", "2 (Tarn) or 4 (Tarn5)"},
        {"POST", "/api/devices", "{\"protocol\":2,\"deviceID\":\"NEW1\",\"telmiAddress\":\"ftp://x\"}",
         "http://host:port"},
    };
    for (const Case& c : cases) {
        const Outcome reply = gateway.api(c.method, c.path, c.body);
        EXPECT_EQ(reply.status, 400) << c.method << " " << c.path << " " << c.body << ": " << reply.out;
        EXPECT_EQ(reply.json()["error"]["code"].asInt(), 0) << reply.out;
        EXPECT_THAT(reply.json()["error"]["message"].asString(), HasSubstr(c.message));
    }
    const std::string deepest = "{\"enabled\":1,\"pad\":" + std::string(15, '[') + std::string(15, ']') + "}";
    EXPECT_EQ(gateway.api("PUT", "/api/telmi", deepest).status, 200) << "sixteen levels deep at most";
    const Json::Value users = gateway.api("GET", "/api/users").json();
    EXPECT_EQ(users["totalMatches"].asInt(), 1);
    EXPECT_EQ(users["users"][0]["userName"].asString(), "tarnuser");
    EXPECT_EQ(gateway.api("GET", "/api/devices").json()["devices"].size(), 2u);

    // Library and store codes as a status of their own outside batches (per item in batches: telmictl_test).
    EXPECT_THAT(gateway.api("POST", "/api/ports/" + std::string(36, 'f') + "/retry").withOut(),
                StatusWith(404, "\"code\":1040"));
    EXPECT_EQ(gateway.api("GET", "/api/nowhere").status, 404);
    EXPECT_THAT(
        digestCurl(gateway.apiPort(), "admin", gateway.adminPassword(), "-D - -X DELETE", "/api/users").withOut(),
        StatusWith(405, "Allow: GET, POST\r\n"));

    // Without admin credentials nothing passes.
    EXPECT_THAT(curl("-D - -X PUT --data '{\"enabled\":0}' '" + gateway.apiUrl("/api/telmi") + "'").withOut(),
                StatusWith(401, "WWW-Authenticate: Digest"));
    EXPECT_EQ(gateway.api("GET", "/api/telmi").json()["enabled"].asInt(), 1) << "nor did any refused switch";

    // A removed device takes its account and its binding along (its listeners: gateway_listeners_test).
    addUser(gateway, "tarn5user", "TARN50001");
    const Outcome removed = gateway.api("DELETE", "/api/devices/" + devices.tarn5Index);
    ASSERT_EQ(removed.status, 200) << removed.out;
    // The library hears of the removal on the device store's thread (the lists: demo_tour_test).
    EXPECT_TRUE(eventually([&] { return digestCurl(gateway.userPort(), "tarn5user", kUserPassword).status == 401; }));
    EXPECT_EQ(digestCurl(gateway.userPort(), "tarnuser", kUserPassword).status, 200);
    EXPECT_EQ(gateway.api("GET", "/api/devices").json()["devices"].size(), 1u);
    EXPECT_EQ(gateway.api("DELETE", "/api/devices/" + devices.tarn5Index).status, 404);
}

}  // namespace
