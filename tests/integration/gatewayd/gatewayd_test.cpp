// The reference gateway end to end: scripts/gateway.sh starts zqmediad and zqgatewayd (which
// loads the real library and starts nginx) over a temporary home; curl and Python requests are
// the clients; stand-in devices answer the forwarded TELMI requests.
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "GatewayRun.h"

using namespace gwtest;

namespace {

const std::string kUserPassword = "Cam3ra!Pass";
const char* const kUri = "/TELMI/System/deviceInfo?format=json";

std::string quotedUrl(unsigned short port, const std::string& target) {
    return "'http://127.0.0.1:" + std::to_string(port) + target + "'";
}

Outcome digestCurl(unsigned short port, const std::string& user, const std::string& password,
                 const std::string& target = kUri) {
    return curl("--digest -u '" + user + ":" + password + "' " + quotedUrl(port, target));
}

std::string addUser(const GatewayRun& gateway, const std::string& name, const std::string& deviceID) {
    const Outcome reply = gateway.api("POST", "/api/users", "{\"users\":[{\"userName\":\"" + name +
                                                                "\",\"password\":\"" + kUserPassword +
                                                                "\",\"deviceID\":\"" + deviceID + "\"}]}");
    EXPECT_EQ(reply.status, 200) << reply.out;
    EXPECT_EQ(reply.json()["results"][0]["code"].asInt(), 0) << reply.out;
    return reply.json()["results"][0]["userIndex"].asString();
}

unsigned short bindPort(const GatewayRun& gateway, const std::string& deviceID) {
    const Outcome reply = gateway.api("POST", "/api/ports", "{\"deviceIDs\":[\"" + deviceID + "\"]}");
    EXPECT_EQ(reply.status, 200) << reply.out;
    EXPECT_EQ(reply.json()["results"][0]["code"].asInt(), 0) << reply.out;
    return static_cast<unsigned short>(reply.json()["results"][0]["httpPort"].asUInt());
}

void switchTelmi(const GatewayRun& gateway, int enabled) {
    const Outcome reply = gateway.api("PUT", "/api/telmi", "{\"enabled\":" + std::to_string(enabled) + "}");
    ASSERT_EQ(reply.status, 200) << reply.out;
    ASSERT_EQ(reply.json()["enabled"].asInt(), enabled);
}

std::string deviceAnswer(const std::string& device, const std::string& target = kUri) {
    return "device=" + device + " method=GET target=" + target + " credentials=no";
}

// A TCP relay 127.0.0.1:listenPort -> 127.0.0.1:targetPort that holds back the first answer
// carrying a Digest challenge for 2.5 s, so that the client answers it with an aged nonce.
std::unique_ptr<Program> delayingRelay(unsigned short listenPort, unsigned short targetPort) {
    static const char* const kScript = R"(
import socket, sys, threading, time
server = socket.create_server(("127.0.0.1", int(sys.argv[1])))
print("listening", flush=True)
held = threading.Event()

def pump(source, sink, hold):
    try:
        while data := source.recv(16384):
            if hold and b"WWW-Authenticate" in data and not held.is_set():
                held.set()
                time.sleep(2.5)
            sink.sendall(data)
        sink.shutdown(socket.SHUT_WR)
    except OSError:
        pass

while True:
    client, _ = server.accept()
    upstream = socket.create_connection(("127.0.0.1", int(sys.argv[2])))
    threading.Thread(target=pump, args=(client, upstream, False), daemon=True).start()
    threading.Thread(target=pump, args=(upstream, client, True), daemon=True).start()
)";
    auto relay = std::make_unique<Program>(std::vector<std::string> {
        "python3", "-c", kScript, std::to_string(listenPort), std::to_string(targetPort)});
    EXPECT_EQ(relay->readLine(), "listening\n");
    return relay;
}

// A Tarn device with a TELMI user and a Tarn5 device with a port binding, switch on.
struct TwoDevices {
    explicit TwoDevices(GatewayRun& gateway)
        : tarn("tarn-cam", gateway.freePort(0)) {
        tarn5.emplace("tarn5-cam", gateway.freePort(1));
        gateway.start();
        gateway.registerDevice(2, "TARN0001", gateway.freePort(0));
        tarn5Index = gateway.registerDevice(4, "TARN50001", gateway.freePort(1));
        addUser(gateway, "tarnuser", "TARN0001");
        httpPort = bindPort(gateway, "TARN50001");
        switchTelmi(gateway, 1);
    }
    StandInDevice tarn;
    std::optional<StandInDevice> tarn5;
    std::string tarn5Index;
    unsigned short httpPort = 0;
};

TEST(GatewayService, TelmiRequestsReachTheirDevicesInBothModesWithStaleNoncesAndAfterARestart) {
    GatewayRun gateway;
    TwoDevices devices(gateway);
    const unsigned short userPort = gateway.userPort();

    Outcome reply = digestCurl(userPort, "tarnuser", kUserPassword);
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.out, deviceAnswer("tarn-cam"));
    reply = pythonDigestGet("http://127.0.0.1:" + std::to_string(devices.httpPort) + kUri, "admin",
                            gateway.adminPassword());
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.out, deviceAnswer("tarn5-cam"));
    // The device restarts: the connection the gateway kept open to it is gone.
    devices.tarn5.reset();
    devices.tarn5.emplace("tarn5-cam", gateway.freePort(1));
    reply = digestCurl(devices.httpPort, "admin", gateway.adminPassword());
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.out, deviceAnswer("tarn5-cam"));
    // Port mode takes the gateway's admin only, user mode its TELMI users only.
    EXPECT_EQ(digestCurl(devices.httpPort, "tarnuser", kUserPassword).status, 401);
    EXPECT_EQ(digestCurl(userPort, "admin", gateway.adminPassword()).status, 401);

    // A request without credentials is challenged in the library's form, in both modes.
    for (unsigned short port : {userPort, devices.httpPort}) {
        reply = curl("-D - " + quotedUrl(port, kUri));
        EXPECT_EQ(reply.status, 401);
        EXPECT_NE(reply.out.find("WWW-Authenticate: Digest qop=\"auth\", realm=\"TELMI\", nonce=\""), std::string::npos)
            << reply.out;
        EXPECT_NE(reply.out.find("stale=\"FALSE\""), std::string::npos) << reply.out;
    }

    // The first challenge reaches curl when its nonce (lifetime 1 s) is already stale.
    const auto relay = delayingRelay(gateway.freePort(5), userPort);
    reply = curl("-D - --digest -u 'tarnuser:" + kUserPassword + "' " + quotedUrl(gateway.freePort(5), kUri));
    EXPECT_EQ(reply.status, 200);
    EXPECT_NE(reply.out.find("stale=\"TRUE\""), std::string::npos) << reply.out;
    EXPECT_NE(reply.out.find(deviceAnswer("tarn-cam")), std::string::npos) << reply.out;

    // Switched off, both front ends refuse while the API goes on working.
    switchTelmi(gateway, 0);
    EXPECT_EQ(digestCurl(userPort, "tarnuser", kUserPassword).status, 403);
    EXPECT_EQ(digestCurl(devices.httpPort, "admin", gateway.adminPassword()).status, 403);
    EXPECT_EQ(gateway.api("GET", "/api/telmi").json()["enabled"].asInt(), 0);
    switchTelmi(gateway, 1);

    // Stopped, the port is closed; started again, the binding serves as before.
    EXPECT_NE(gateway.script("stop").find("nginx: stopped"), std::string::npos);
    EXPECT_FALSE(listening(devices.httpPort));
    const std::string restarted = gateway.script("start");
    ASSERT_NE(restarted.find("zqgatewayd: running"), std::string::npos) << restarted;
    reply = digestCurl(devices.httpPort, "admin", gateway.adminPassword());
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.out, deviceAnswer("tarn5-cam"));
    EXPECT_EQ(digestCurl(userPort, "tarnuser", kUserPassword).out, deviceAnswer("tarn-cam"));
    const Json::Value port = gateway.api("GET", "/api/ports").json()["ports"][0];
    EXPECT_EQ(port["httpPort"].asUInt(), devices.httpPort);
    EXPECT_EQ(port["httpListening"].asInt(), 1);
    EXPECT_EQ(port["rtspListening"].asInt(), 1);
}

TEST(GatewayService, SevenWrongPasswordsLockTheRequesterOutInBothModes) {
    GatewayRun gateway;
    TwoDevices devices(gateway);
    struct Mode {
        unsigned short port;
        std::string user, password;
    };
    for (const Mode& mode : {Mode {gateway.userPort(), "tarnuser", kUserPassword},
                             Mode {devices.httpPort, "admin", gateway.adminPassword()}}) {
        SCOPED_TRACE("port " + std::to_string(mode.port));
        // Requests without credentials, as a browser opening a page sends them, never count.
        for (int i = 0; i < 10; ++i) {
            EXPECT_EQ(curl(quotedUrl(mode.port, kUri)).status, 401);
        }
        for (int i = 0; i < 6; ++i) {
            EXPECT_EQ(digestCurl(mode.port, mode.user, "Wrong!Pass1").status, 401);
        }
        EXPECT_EQ(digestCurl(mode.port, mode.user, mode.password).status, 200);  // and the count starts again
        for (int i = 1; i <= 7; ++i) {
            const Outcome reply = digestCurl(mode.port, mode.user, "Wrong!Pass1");
            EXPECT_EQ(reply.status, 401);
            EXPECT_EQ(reply.out.find("locked out") != std::string::npos, i == 7) << i << ": " << reply.out;
        }
        const Outcome refused = digestCurl(mode.port, mode.user, mode.password);
        EXPECT_EQ(refused.status, 401);
        EXPECT_NE(refused.out.find("locked out for"), std::string::npos) << refused.out;
    }
}

TEST(ManagementApi, RefusesBadInputWithoutChangingAnythingAndRemovesDevicesWithTheirAccountsAndPorts) {
    GatewayRun gateway;
    TwoDevices devices(gateway);
    const std::string userIndex = gateway.api("GET", "/api/users").json()["users"][0]["userIndex"].asString();
    const std::string longName(33, 'n');
    struct Case {
        const char* method;
        std::string path, body, message;
    };
    const Case cases[] = {
        {"PUT", "/api/telmi", "{\"enabled\":", "not valid JSON"},
        {"PUT", "/api/telmi", "[1]", "must be a JSON object"},
        {"PUT", "/api/telmi", "{\"enabled\":\"0\"}", "\"enabled\" must be an integer"},
        {"PUT", "/api/telmi", "{\"enabled\":0.5}", "\"enabled\" must be an integer"},
        {"POST", "/api/users", "{\"users\":[{\"userName\":\"fine\",\"password\":\"Cam3ra!Pass\",\"deviceID\":\"TARN50001\"},"
                               "{\"userName\":7,\"password\":\"Cam3ra!Pass\",\"deviceID\":\"TARN50001\"}]}",
         "\"userName\" must be a string"},
        {"POST", "/api/users", "{\"users\":[{\"userName\":\"" + longName + "\",\"password\":\"Cam3ra!Pass\","
                               "\"deviceID\":\"TARN50001\"}]}", "longer than 32"},
        {"POST", "/api/users", "{\"users\":[{\"userName\":\"fine\",\"password\":\"Cam3ra!Pass-too-long\","
                               "\"deviceID\":\"TARN50001\"}]}", "longer than 16"},
        {"POST", "/api/users", "{\"users\":[]}", "1 to 1000 items"},
        {"PUT", "/api/users/" + userIndex, "{\"userName\":\"renamed\",\"password\":\"Cam3ra!Pass\"}", "\"deviceID\" is missing"},
        {"POST", "/api/users/delete", "{\"userIndexes\":[\"" + userIndex + "\",7]}", "must be a string"},
        {"POST", "/api/ports", "{\"deviceIDs\":[\"" + std::string(32, 'D') + "\"]}", "longer than 31"},
        {"GET", "/api/users?start=501", "", "between 0 and 500"},
        {"GET", "/api/ports?max=ten", "", "decimal number"},
        {"GET", "/api/users?keyword=" + std::string(129, 'k'), "", "longer than 128"},
        {"POST", "/api/devices", "{\"protocol\":3,\"deviceID\":\"NEW1\"}", "2 (Tarn) or 4 (Tarn5)"},
        {"POST", "/api/devices", "{\"protocol\":2,\"deviceID\":\"NEW1\",\"telmiAddress\":\"ftp://x\"}", "http://host:port"},
    };
    for (const Case& c : cases) {
        const Outcome reply = gateway.api(c.method, c.path, c.body);
        EXPECT_EQ(reply.status, 400) << c.method << " " << c.path << " " << c.body << ": " << reply.out;
        EXPECT_EQ(reply.json()["error"]["code"].asInt(), 0) << reply.out;
        EXPECT_NE(reply.json()["error"]["message"].asString().find(c.message), std::string::npos) << reply.out;
    }
    const Json::Value users = gateway.api("GET", "/api/users").json();
    EXPECT_EQ(users["totalMatches"].asInt(), 1);
    EXPECT_EQ(users["users"][0]["userName"].asString(), "tarnuser");
    EXPECT_EQ(gateway.api("GET", "/api/devices").json()["devices"].size(), 2u);
    EXPECT_EQ(gateway.api("GET", "/api/telmi").json()["enabled"].asInt(), 1);

    // Library and store codes: per item in batches, as a status of their own otherwise.
    Outcome reply = gateway.api("POST", "/api/users",
                              "{\"users\":[{\"userName\":\"weak\",\"password\":\"aaaaaaaa\",\"deviceID\":\"TARN50001\"},"
                              "{\"userName\":\"again\",\"password\":\"Cam3ra!Pass\",\"deviceID\":\"TARN0001\"}]}");
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.json()["results"][0]["code"].asInt(), 257) << reply.out;
    EXPECT_EQ(reply.json()["results"][1]["code"].asInt(), 1026) << reply.out;
    reply = gateway.api("POST", "/api/ports/" + std::string(36, 'f') + "/retry");
    EXPECT_EQ(reply.status, 404);
    EXPECT_EQ(reply.json()["error"]["code"].asInt(), 1040) << reply.out;
    EXPECT_EQ(gateway.api("GET", "/api/nowhere").status, 404);

    // Without admin credentials nothing passes.
    reply = curl("-D - -X PUT --data '{\"enabled\":0}' '" + gateway.apiUrl("/api/telmi") + "'");
    EXPECT_EQ(reply.status, 401);
    EXPECT_NE(reply.out.find("WWW-Authenticate: Digest"), std::string::npos) << reply.out;
    EXPECT_EQ(curl("--digest -u admin:Wrong!Pass1 '" + gateway.apiUrl("/api/telmi") + "'").status, 401);
    EXPECT_EQ(gateway.api("GET", "/api/telmi").json()["enabled"].asInt(), 1);

    // A removed device takes its account and its ports along.
    addUser(gateway, "tarn5user", "TARN50001");
    const Json::Value port = gateway.api("GET", "/api/ports").json()["ports"][0];
    const auto rtspPort = static_cast<unsigned short>(port["rtspPort"].asUInt());
    // nginx takes the bound port once its reload completes, which a sanitizer build slows down.
    ASSERT_TRUE(eventually([&] { return listening(devices.httpPort) && listening(rtspPort); }));

    const Outcome removed = gateway.api("DELETE", "/api/devices/" + devices.tarn5Index);
    ASSERT_EQ(removed.status, 200) << removed.out;
    // The library hears of the removal on the device store's thread.
    EXPECT_TRUE(eventually([&] { return gateway.api("GET", "/api/ports").json()["totalMatches"].asInt() == 0; }));
    EXPECT_TRUE(eventually([&] { return !listening(devices.httpPort) && !listening(rtspPort); }));
    EXPECT_TRUE(eventually([&] {
        const Json::Value left = gateway.api("GET", "/api/users").json()["users"];
        return left.size() == 1 && left[0]["userName"].asString() == "tarnuser";
    }));
    EXPECT_EQ(digestCurl(gateway.userPort(), "tarn5user", kUserPassword).status, 401);
    EXPECT_EQ(digestCurl(gateway.userPort(), "tarnuser", kUserPassword).status, 200);
    EXPECT_EQ(gateway.api("GET", "/api/devices").json()["devices"].size(), 1u);
    EXPECT_EQ(gateway.api("DELETE", "/api/devices/" + devices.tarn5Index).status, 404);
}

}  // namespace
