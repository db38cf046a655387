// The device simulator zqdevsim as a separate process: its TELMI interfaces through curl, its
// RTSP sources through ffprobe, its command line, its stop.
#include <gtest/gtest.h>
#include <json/json.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "ChildProgram.h"
#include "GatewayTestHome.h"

using gwtest::Program;
using gwtest::runShell;

namespace {

struct HttpAnswer {
    int status = 0;
    std::string deviceID;  // the X-Device-ID header
    Json::Value body;
};

// One request with curl; body, when given, must not contain a single quote.
HttpAnswer http(const std::string& method, unsigned short port, const std::string& path, const std::string& body = "") {
    const std::string text =
        runShell("curl -sS -i --max-time 20 -X " + method + (body.empty() ? "" : " --data-binary '" + body + "'") +
                 " http://127.0.0.1:" + std::to_string(port) + path);
    HttpAnswer answer;
    std::sscanf(text.c_str(), "HTTP/1.1 %d", &answer.status);
    const size_t header = text.find("X-Device-ID: ");
    if (header != std::string::npos) {
        answer.deviceID = text.substr(header + 13, text.find("\r\n", header) - header - 13);
    }
    const size_t bodyStart = text.find("\r\n\r\n");
    if (bodyStart != std::string::npos) {
        Json::Reader().parse(text.substr(bodyStart + 4), answer.body);
    }
    return answer;
}

// The line the simulator prints for a device once it serves.
std::string line(const char* id, const char* protocol, int category, int httpPort, int rtspPort,
                 const std::string& deviceIndex = "-") {
    return std::string(id) + " " + protocol + " " + std::to_string(category) + " http://127.0.0.1:" +
           std::to_string(httpPort) + " rtsp://127.0.0.1:" + std::to_string(rtspPort) + " " + deviceIndex + "\n";
}

// Runs the simulator to its end with input (a word) on stdin; its exit status, and what it
// wrote to stderr in errors.
int runToEnd(const std::string& arguments, std::string& errors, const std::string& input = "") {
    const std::string output = runShell((input.empty() ? "" : "echo " + input + " | ") + ZQ_DEVSIM_PATH + " " +
                                        arguments + (input.empty() ? " </dev/null" : "") + " 2>&1 >/dev/null; echo $?");
    const size_t lastLine = output.rfind('\n', output.size() - 2);
    errors = lastLine == std::string::npos ? "" : output.substr(0, lastLine + 1);
    return std::stoi(output.substr(lastLine == std::string::npos ? 0 : lastLine + 1));
}

TEST(DevsimTest, EachDeviceServesItsOwnTelmiResourcesAndRtspSource) {
    const unsigned short first = gwtest::testPortBlock(4);
    ASSERT_NE(first, 0);
    const unsigned short http1 = first, http2 = first + 1, rtsp1 = first + 2, rtsp2 = first + 3;
    Program simulator({ZQ_DEVSIM_PATH, "--count", "2", "--first-http-port", std::to_string(http1),
                       "--first-rtsp-port", std::to_string(rtsp1), "--category", "alternating"});
    EXPECT_EQ(simulator.readLine(), line("SIM001", "tarn", 1, http1, rtsp1));
    EXPECT_EQ(simulator.readLine(), line("SIM002", "tarn5", 2, http2, rtsp2)) << "protocols alternate by default";

    const HttpAnswer info = http("GET", http2, "/TELMI/System/deviceInfo");
    EXPECT_EQ(info.status, 200);
    EXPECT_EQ(info.deviceID, "SIM002");
    EXPECT_EQ(info.body["deviceID"], "SIM002");
    EXPECT_EQ(info.body["protocol"], "tarn5");
    EXPECT_EQ(info.body["category"], 2);

    const std::string color = "/TELMI/Image/channels/1/color";
    const HttpAnswer changed = http("PUT", http2, color, R"({"brightness":70,"hue":20})");
    EXPECT_EQ(changed.status, 200);
    EXPECT_EQ(changed.deviceID, "SIM002");
    EXPECT_EQ(http("GET", http2, color).body["brightness"], 70) << "read back";
    EXPECT_EQ(http("GET", http1, color).body["brightness"], 50) << "the other device keeps its own settings";

    const HttpAnswer outOfRange = http("PUT", http2, color, R"({"brightness":10,"contrast":170})");
    EXPECT_EQ(outOfRange.status, 400);
    EXPECT_EQ(outOfRange.deviceID, "SIM002");
    EXPECT_EQ(outOfRange.body["errorMsg"], "\"contrast\" must be an integer from 0 to 100");
    EXPECT_EQ(http("GET", http2, color).body["brightness"], 70) << "a refused change applies no field";
    EXPECT_EQ(http("PUT", http1, "/TELMI/Network/interfaces/1", R"({"ipAddress":"10.0.0.256"})").body["errorMsg"],
              "\"ipAddress\" must be a dotted IPv4 address such as \"192.168.1.64\"");
    EXPECT_EQ(http("PUT", http1, "/TELMI/System/time", R"({"timeZone":"UTC+08:00","ntp":1})").body["errorMsg"],
              "unknown field \"ntp\" (fields: ntpIntervalMinutes, ntpServer, timeMode, timeZone)");
    EXPECT_EQ(http("PUT", http1, "/TELMI/System/time", R"({"timeZone":)").status, 400);
    EXPECT_EQ(http("PUT", http1, "/TELMI/System/time", R"({"timeZone":"UTC-03:30"})").body["timeZone"], "UTC-03:30");
    EXPECT_EQ(http("PUT", http1, "/TELMI/System/deviceInfo", R"({"name":"x"})").status, 405);
    const HttpAnswer missing = http("GET", http1, "/TELMI/System/nothing");
    EXPECT_EQ(missing.status, 404);
    EXPECT_EQ(missing.deviceID, "SIM001");

    EXPECT_EQ(gwtest::ffprobe(rtsp1), "pcm_mulaw,8000,25\n");
    EXPECT_EQ(gwtest::ffprobe(rtsp2), "pcm_mulaw,8000,25\n");
    EXPECT_EQ(runShell("timeout 60 ffprobe -v quiet -show_entries stream=codec_name -of csv=p=0 rtsp://127.0.0.1:" +
                       std::to_string(rtsp2)),
              "pcm_mulaw\n")
        << "a client that asks for UDP first is refused and plays over TCP";
    const std::string options = runShell("curl -sS -i --max-time 20 -X OPTIONS rtsp://127.0.0.1:" +
                                         std::to_string(rtsp2) + "/stream 2>&1");
    EXPECT_NE(options.find("Public: OPTIONS, DESCRIBE, SETUP, PLAY"), std::string::npos) << options;

    EXPECT_EQ(simulator.stop(), 0) << "SIGTERM stops it cleanly";
}

TEST(DevsimTest, DevicesComeFromTheCommandLineOrAFileAndBadOnesAreRefused) {
    const unsigned short first = gwtest::testPortBlock(2);
    ASSERT_NE(first, 0);
    const std::string file = ::testing::TempDir() + "devsim_devices.json";
    std::ofstream(file) << R"({"devices": [{"deviceID": "GATE-1", "name": "Gate", "protocol": "tarn5",
        "category": 2, "httpPort": )" << first << R"(, "rtspPort": )" << first + 1 << "}]}";
    Program simulator({ZQ_DEVSIM_PATH, "--devices", file});
    EXPECT_EQ(simulator.readLine(), line("GATE-1", "tarn5", 2, first, first + 1));
    EXPECT_EQ(http("GET", first, "/TELMI/System/deviceInfo").body["name"], "Gate");

    std::string errors;
    EXPECT_EQ(runToEnd("--devices " + file, errors), 1) << "the ports are taken by the first simulator";
    EXPECT_NE(errors.find("device GATE-1: RTSP port " + std::to_string(first + 1) + " cannot be listened on"),
              std::string::npos)
        << errors;
    EXPECT_EQ(simulator.stop(), 0);

    EXPECT_EQ(runToEnd("--count 2 --first-http-port 39500 --first-rtsp-port 39501", errors), 2);
    EXPECT_EQ(errors, "zqdevsim: device 2 (SIM002): port 39501 is also used by device 1 (SIM001)\n");
    EXPECT_EQ(runToEnd("--id-prefix ABCDEFGHIJKLMNOPQRSTUVWXYZABCD", errors), 2) << "31 characters at most";
    EXPECT_NE(errors.find("the device ID must be 1 to 31"), std::string::npos) << errors;
    std::ofstream(file) << R"({"devices": [{"deviceID": "A", "httpPort": 39500, "rtspPort": 39501, "port": 1}]})";
    EXPECT_EQ(runToEnd("--devices " + file, errors), 2);
    EXPECT_NE(errors.find("entry 1: unknown member \"port\""), std::string::npos) << errors;
    EXPECT_EQ(runToEnd("--devices " + file + " --count 2", errors), 2) << "a file or a count, not both";
}

TEST(DevsimTest, RegistersItsDevicesThroughTheManagementApiAndRemovesThemAgain) {
    Program gateway({"python3", ZQ_MANAGEMENT_STAND_IN, "Adm1n-secret"});
    const std::string apiPort = gateway.readLine();
    ASSERT_FALSE(apiPort.empty());
    const std::string url = "http://127.0.0.1:" + apiPort.substr(0, apiPort.size() - 1);
    const std::string passwordFile = ::testing::TempDir() + "devsim_admin_password";
    std::ofstream(passwordFile) << "Adm1n-secret\n";
    const unsigned short first = gwtest::testPortBlock(4);
    ASSERT_NE(first, 0);
    const std::string ports = " --first-http-port " + std::to_string(first) + " --first-rtsp-port " +
                              std::to_string(first + 2);

    std::string errors;
    EXPECT_EQ(runToEnd("--count 1" + ports + " --register " + url, errors), 2);
    EXPECT_NE(errors.find("no gateway admin password on standard input"), std::string::npos) << errors;
    EXPECT_EQ(runToEnd("--count 1" + ports + " --register " + url, errors, "wrong-password"), 1);
    EXPECT_NE(errors.find("device SIM001 not registered: HTTP 401: the admin password was not accepted"),
              std::string::npos)
        << errors;

    Program simulator({ZQ_DEVSIM_PATH, "--count", "2", "--first-http-port", std::to_string(first),
                       "--first-rtsp-port", std::to_string(first + 2), "--register", url,
                       "--admin-password-file", passwordFile, "--unregister-on-exit"});
    EXPECT_EQ(simulator.readLine(), line("SIM001", "tarn", 1, first, first + 2, "index-SIM001"));
    EXPECT_EQ(simulator.readLine(), line("SIM002", "tarn5", 1, first + 1, first + 3, "index-SIM002"));
    EXPECT_EQ(simulator.stop(), 0);

    // A refused device: the ones registered before it are removed again.
    const std::string file = ::testing::TempDir() + "devsim_refused.json";
    std::ofstream(file) << R"({"devices": [{"deviceID": "OK-1", "httpPort": )" << first << R"(, "rtspPort": )"
                        << first + 1 << R"(}, {"deviceID": "BAD-2", "httpPort": )" << first + 2
                        << R"(, "rtspPort": )" << first + 3 << "}]}";
    EXPECT_EQ(runToEnd("--devices " + file + " --register " + url + " --admin-password-file " + passwordFile,
                       errors), 1);
    EXPECT_NE(errors.find("device BAD-2 not registered: HTTP 409: device refused (code 61006)"), std::string::npos)
        << errors;

    gateway.stop();  // what it heard is all on its stdout now
    std::vector<std::string> heard;
    for (std::string request = gateway.readLine(); !request.empty(); request = gateway.readLine()) {
        heard.push_back(request);
    }
    const auto post = [](const std::string& id, const std::string& name, int protocol, int httpPort, int rtspPort) {
        return "POST {\"category\": 1, \"deviceID\": \"" + id + "\", \"name\": \"" + name +
               "\", \"protocol\": " + std::to_string(protocol) + ", \"rtspAddress\": \"rtsp://127.0.0.1:" +
               std::to_string(rtspPort) + "\", \"telmiAddress\": \"http://127.0.0.1:" + std::to_string(httpPort) +
               "\"}\n";
    };
    EXPECT_EQ(heard, (std::vector<std::string> {
                         post("SIM001", "Simulated camera 1", 2, first, first + 2),
                         post("SIM002", "Simulated camera 2", 4, first + 1, first + 3),
                         "DELETE index-SIM001\n",
                         "DELETE index-SIM002\n",
                         post("OK-1", "OK-1", 2, first, first + 1),
                         "DELETE index-OK-1\n",
                     }));
}

}  // namespace
