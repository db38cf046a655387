#include "GatewayRun.h"

#include <gtest/gtest.h>

#include <regex>

#include "ChildProgram.h"
#include "ZQGatewayHome.h"

namespace gwtest {
namespace {

std::string shellQuoted(const std::string& text) {
    std::string quoted = "'";
    for (char c : text) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

// Splits "<text>\n<status>" as curl -w and the Python client print it.
Reply splitStatusLast(const std::string& output) {
    Reply reply;
    const size_t newline = output.rfind('\n');
    const std::string status = newline == std::string::npos ? output : output.substr(newline + 1);
    reply.status = std::atoi(status.c_str());
    reply.text = newline == std::string::npos ? "" : output.substr(0, newline);
    return reply;
}

}  // namespace

Json::Value Reply::json() const {
    Json::Value value;
    Json::Reader().parse(text, value);
    return value;
}

Reply curl(const std::string& arguments) {
    return splitStatusLast(runShell("curl -s -g --max-time 60 -w '\\n%{http_code}' " + arguments + " 2>/dev/null"));
}

Reply pythonDigestGet(const std::string& url, const std::string& user, const std::string& password) {
    static const char* const kScript =
        "import sys, requests\n"
        "from requests.auth import HTTPDigestAuth\n"
        "r = requests.get(sys.argv[1], auth=HTTPDigestAuth(sys.argv[2], sys.argv[3]), timeout=60)\n"
        "print(r.text + '\\n' + str(r.status_code), end='')\n";
    // Debian's interpreter, whose requests module the install script provides.
    return splitStatusLast(runShell("/usr/bin/python3 -c " + shellQuoted(kScript) + " " + shellQuoted(url) + " " +
                                    shellQuoted(user) + " " + shellQuoted(password)));
}

StandInDevice::StandInDevice(const std::string& name, unsigned short port) {
    const auto answer = [name](const httplib::Request& req, httplib::Response& res) {
        res.set_content("device=" + name + " method=" + req.method + " target=" + req.target +
                            " credentials=" + (req.has_header("Authorization") ? "yes" : "no"),
                        "text/plain");
    };
    server_.Get(".*", answer);
    server_.Post(".*", answer);
    server_.Put(".*", answer);
    EXPECT_TRUE(server_.bind_to_port("127.0.0.1", port)) << "stand-in device port " << port;
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    while (!server_.is_running()) {
        std::this_thread::yield();
    }
}

StandInDevice::~StandInDevice() {
    server_.stop();
    thread_.join();
}

GatewayRun::GatewayRun() : base_(testPortBlock(40)) {
    EXPECT_NE(base_, 0) << "no free test ports";
    const unsigned short base = base_;
    EXPECT_TRUE(inChild(home_, [base] {
        ZQGateway::tagGatewaySettings s;
        ZQ_Gateway_GetSettings(s);
        s.managementPort = base;
        s.telmiUserPort = static_cast<uint16_t>(base + 1);
        s.httpPortFirst = static_cast<uint16_t>(base + 10);
        s.httpPortLast = static_cast<uint16_t>(base + 19);
        s.rtspPortFirst = static_cast<uint16_t>(base + 20);
        s.rtspPortLast = static_cast<uint16_t>(base + 29);
        s.nonceLifetimeSec = 1;  // so that a nonce goes stale within a test
        ASSERT_EQ(ZQ_Gateway_SetSettings(s), 0);
    }));
}

GatewayRun::~GatewayRun() { script("stop"); }

std::string GatewayRun::script(const std::string& action) {
    return runShell(std::string("ZQ_BUILD_DIR=") + ZQ_BUILD_DIR + " " + ZQ_GATEWAY_SCRIPT + " --home " +
                    shellQuoted(home_.path()) + " " + action + " 2>&1");
}

void GatewayRun::start() {
    const std::string output = script("start");
    std::smatch password;
    if (std::regex_search(output, password, std::regex("admin password: (\\S+)"))) {
        adminPassword_ = password[1];
    }
    ASSERT_FALSE(adminPassword_.empty()) << output;
    ASSERT_NE(output.find("zqgatewayd: running"), std::string::npos) << output;
    ASSERT_NE(output.find("nginx: running"), std::string::npos) << output;
}

std::string GatewayRun::apiUrl(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(base_) + path;
}

Reply GatewayRun::api(const std::string& method, const std::string& path, const std::string& body) const {
    std::string arguments = "--digest -u " + shellQuoted("admin:" + adminPassword_) + " -X " + method;
    if (!body.empty() || method == "POST") {
        arguments += " -H 'Content-Type: application/json' --data-binary " + shellQuoted(body);
    }
    return curl(arguments + " " + shellQuoted(apiUrl(path)));
}

std::string GatewayRun::registerDevice(int protocol, const std::string& deviceID, unsigned short port) const {
    const Reply reply = api("POST", "/api/devices",
                            "{\"protocol\":" + std::to_string(protocol) + ",\"deviceID\":\"" + deviceID +
                                "\",\"name\":\"" + deviceID + " camera\",\"category\":1,\"telmiAddress\":"
                                "\"http://127.0.0.1:" + std::to_string(port) + "\",\"rtspAddress\":"
                                "\"rtsp://127.0.0.1:" + std::to_string(port) + "\"}");
    EXPECT_EQ(reply.status, 201) << reply.text;
    return reply.json()["deviceIndex"].asString();
}

}  // namespace gwtest
