// The device simulator zqdevsim as a separate process: its TELMI interfaces through curl, its
// RTSP sources through ffprobe, its command line, its registration with a real gateway, its stop.

#include "GatewayRun.h"

using namespace gwtest;

namespace {

struct HttpAnswer {
    std::string head;  // the status and the X-Device-ID header: "200 SIM001"
    Json::Value body;
};

HttpAnswer http(const std::string& method, unsigned short port, const std::string& path, const std::string& body = "") {
    const Outcome reply = curl("-i -X " + method + (body.empty() ? "" : " --data-binary " + shellQuoted(body)) + " " +
                               localUrl(port, path));
    std::smatch parts;
    std::regex_search(reply.out, parts, std::regex("X-Device-ID: (\\S*)[\\s\\S]*?\r\n\r\n([\\s\\S]*)"));
    return {std::to_string(reply.status) + " " + parts.str(1), parseJson(parts.str(2))};
}

// The line the simulator prints for a device once it serves.
std::string line(const char* id, const char* protocol, int category, int httpPort, int rtspPort,
                 const std::string& deviceIndex = "-") {
    return std::string(id) + " " + protocol + " " + std::to_string(category) +
           " http://127.0.0.1:" + std::to_string(httpPort) + " rtsp://127.0.0.1:" + std::to_string(rtspPort) + " " +
           deviceIndex + "\n";
}

Outcome devsim(const std::string& arguments, const std::string& input = "") {
    return runCommand(std::string(ZQ_DEVSIM_PATH) + " " + arguments, input);
}

TEST(DevsimTest, EachDeviceServesItsOwnTelmiResourcesAndRtspSource) {
    const unsigned short first = testPortBlock(4);
    const unsigned short http1 = first, http2 = first + 1, rtsp1 = first + 2, rtsp2 = first + 3;
    Program simulator({ZQ_DEVSIM_PATH, "--count", "2", "--first-http-port", std::to_string(http1), "--first-rtsp-port",
                       std::to_string(rtsp1), "--category", "alternating"});
    EXPECT_EQ(simulator.readLine(), line("SIM001", "tarn", 1, http1, rtsp1));
    EXPECT_EQ(simulator.readLine(), line("SIM002", "tarn5", 2, http2, rtsp2)) << "protocols alternate by default";

    const Json::Value info = http("GET", http2, "/TELMI/System/deviceInfo").body;
    EXPECT_EQ(info["deviceID"].asString() + " " + info["protocol"].asString() + " " + info["category"].asString(),
              "SIM002 tarn5 2");

    const std::string color = "/TELMI/Image/channels/1/color";
    EXPECT_EQ(http("PUT", http2, color, R"({"brightness":70,"hue":20})").head, "200 SIM002");
    EXPECT_EQ(http("GET", http2, color).body["brightness"], 70) << "read back";
    EXPECT_EQ(http("GET", http1, color).body["brightness"], 50) << "the other device keeps its own settings";

    struct Refusal {
        unsigned short port;
        std::string path, body, head, message;
    };
    const Refusal refusals[] = {
        {http2, color, R"({"brightness":10,"contrast":170})", "400 SIM002",
         "\"contrast\" must be an integer from 0 to 100"},
        {http1, "/TELMI/Network/interfaces/1", R"({"ipAddress":"10.0.0.256"})", "400 SIM001",
         "\"ipAddress\" must be a dotted IPv4 address such as \"192.168.1.64\""},
        {http1, "/TELMI/System/time", R"({"timeZone":"UTC+08:00","ntp":1})", "400 SIM001",
         "unknown field \"ntp\" (fields: ntpIntervalMinutes, ntpServer, timeMode, timeZone)"},
        {http1, "/TELMI/System/time", R"({"timeZone":)", "400 SIM001", "the body is not valid JSON: "},
        {http1, "/TELMI/System/deviceInfo", R"({"name":"x"})", "405 SIM001", "/TELMI/System/deviceInfo is read-only"},
    };
    for (const Refusal& r : refusals) {
        const HttpAnswer answer = http("PUT", r.port, r.path, r.body);
        EXPECT_EQ(answer.head, r.head) << r.path << " " << r.body;
        EXPECT_THAT(answer.body["errorMsg"].asString(), StartsWith(r.message));
    }
    EXPECT_EQ(http("GET", http2, color).body["brightness"], 70) << "a refused change applies no field";
    EXPECT_EQ(http("PUT", http1, "/TELMI/System/time", R"({"timeZone":"UTC-03:30"})").body["timeZone"], "UTC-03:30");
    EXPECT_EQ(http("GET", http1, "/TELMI/System/nothing").head, "404 SIM001");

    EXPECT_EQ(runShell("timeout 60 ffprobe -v quiet -show_entries stream=codec_name -of csv=p=0 rtsp://127.0.0.1:" +
                       std::to_string(rtsp2)),
              "pcm_mulaw\n")
        << "a client that asks for UDP first is refused and plays over TCP";
    EXPECT_THAT(runShell("curl -sS -i --max-time 20 -X OPTIONS rtsp://127.0.0.1:" + std::to_string(rtsp2) + "/stream"),
                HasSubstr("Public: OPTIONS, DESCRIBE, SETUP, PLAY"));

    EXPECT_EQ(simulator.stop(), 0) << "SIGTERM stops it cleanly";
}

TEST(DevsimTest, DevicesComeFromTheCommandLineOrAFileAndBadOnesAreRefused) {
    const unsigned short first = testPortBlock(2);
    const std::string file = ::testing::TempDir() + "devsim_devices.json";
    std::ofstream(file) << R"({"devices": [{"deviceID": "GATE-1", "name": "Gate", "protocol": "tarn5",
        "category": 2, "httpPort": )"
                        << first << R"(, "rtspPort": )" << first + 1 << "}]}";
    Program simulator({ZQ_DEVSIM_PATH, "--devices", file});
    EXPECT_EQ(simulator.readLine(), line("GATE-1", "tarn5", 2, first, first + 1));
    EXPECT_EQ(http("GET", first, "/TELMI/System/deviceInfo").body["name"], "Gate");

    // The ports are taken by the first simulator.
    EXPECT_THAT(devsim("--devices " + file).withErr(),
                StatusWith(1, "device GATE-1: RTSP port " + std::to_string(first + 1) + " cannot be listened on"));
    EXPECT_EQ(simulator.stop(), 0);

    EXPECT_EQ(devsim("--count 2 --first-http-port 39500 --first-rtsp-port 39501").withErr(),
              "2 zqdevsim: device 2 (SIM002): port 39501 is also used by device 1 (SIM001)\n");
    EXPECT_THAT(devsim("--id-prefix ABCDEFGHIJKLMNOPQRSTUVWXYZABCD").withErr(),  // 31 characters at most
                StatusWith(2, "the device ID must be 1 to 31"));
    std::ofstream(file) << R"({"devices": [{"deviceID": "A", "httpPort": 39500, "rtspPort": 39501, "port": 1}]})";
    EXPECT_THAT(devsim("--devices " + file).withErr(), StatusWith(2, "entry 1: unknown member \"port\""));
    EXPECT_EQ(devsim("--devices " + file + " --count 2").status, 2) << "a file or a count, not both";
}

TEST(DevsimTest, RegistersItsDevicesWithTheGatewayAllOrNothingAndRemovesThemAgain) {
    GatewayRun gateway;
    gateway.start();
    const std::string passwordFile = gateway.home().path() + "/admin-password";  // written by the start
    const unsigned short first = gateway.freePort(0);
    const std::string registering = "--register " + gateway.apiUrl("") + " ";
    const std::string ports =
        "--first-http-port " + std::to_string(first) + " --first-rtsp-port " + std::to_string(first + 2);

    EXPECT_THAT(devsim(registering + "--count 1 " + ports).withErr(),
                StatusWith(2, "no gateway admin password on standard input"));
    EXPECT_THAT(devsim(registering + "--count 1 " + ports, "wrong-password\n").withErr(),
                StatusWith(1, "device SIM001 not registered: HTTP 401: the admin password was not accepted"));

    Program simulator({ZQ_DEVSIM_PATH, "--count", "2", "--first-http-port", std::to_string(first), "--first-rtsp-port",
                       std::to_string(first + 2), "--register", gateway.apiUrl(""), "--admin-password-file",
                       passwordFile, "--unregister-on-exit"});
    const std::string printed[] = {simulator.readLine(), simulator.readLine()};
    const Json::Value devices = gateway.api("GET", "/api/devices").json()["devices"];
    ASSERT_EQ(devices.size(), 2u) << devices;
    for (Json::ArrayIndex i = 0; i < 2; ++i) {
        const Json::Value& d = devices[i];
        EXPECT_EQ(printed[i], line(i == 0 ? "SIM001" : "SIM002", i == 0 ? "tarn" : "tarn5", 1, first + i, first + 2 + i,
                                   d["deviceIndex"].asString()));
        EXPECT_EQ(d["deviceID"].asString() + (d["protocol"].asInt() == 4 ? " tarn5 " : " tarn ") +
                      d["category"].asString() + " " + d["telmiAddress"].asString() + " " +
                      d["rtspAddress"].asString() + " " + d["deviceIndex"].asString() + "\n",
                  printed[i])
            << "stored as printed";
    }
    EXPECT_EQ(simulator.stop(), 0);
    EXPECT_EQ(gateway.api("GET", "/api/devices").json()["devices"].size(), 0u) << "removed on exit";

    // A refused device: the ones registered before it are removed again.
    const std::string taken = gateway.registerDevice(2, "TAKEN-2", first + 5);
    const std::string file = gateway.home().path() + "/devices.json";
    std::ofstream(file) << R"({"devices": [{"deviceID": "OK-1", "httpPort": )" << first << R"(, "rtspPort": )"
                        << first + 1 << R"(}, {"deviceID": "TAKEN-2", "httpPort": )" << first + 2 << R"(, "rtspPort": )"
                        << first + 3 << "}]}";
    EXPECT_THAT(devsim(registering + "--devices " + file + " --admin-password-file " + passwordFile).withErr(),
                StatusWith(1,
                           "device TAKEN-2 not registered: HTTP 409: the device was not registered: another "
                           "device has that access ID (code 61010)"));
    const Json::Value left = gateway.api("GET", "/api/devices").json()["devices"];
    ASSERT_EQ(left.size(), 1u) << left;
    EXPECT_EQ(left[0]["deviceIndex"].asString(), taken);
}

}  // namespace
