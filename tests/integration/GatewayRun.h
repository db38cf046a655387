// One reference gateway for a test: a temporary home with test ports, started and stopped with
// scripts/gateway.sh, the clients the tests speak through (curl, Python requests), stand-in
// devices, and the gateway most end-to-end tests share: a Tarn device that has a TELMI user and
// a Tarn5 device with a port binding.
#pragma once

#include <httplib.h>

#include <optional>

#include "GatewayTestHome.h"

namespace gwtest {

using ::testing::AllOf;
using ::testing::ContainsRegex;

extern const std::string kUserPassword;
extern const char* const kUri;  // the target every TELMI request below asks for

// The address of target on 127.0.0.1:port.
std::string localUrl(unsigned short port, const std::string& target = kUri);
// curl --digest with these options, for target on 127.0.0.1:port.
Outcome digestCurl(unsigned short port, const std::string& user, const std::string& password,
                   const std::string& options = "", const std::string& target = kUri);

// An HTTP device on 127.0.0.1:port answering every GET with
// "device=<name> method=<method> target=<target> credentials=<yes|no>".
class StandInDevice {
public:
    StandInDevice(const std::string& name, unsigned short port);
    ~StandInDevice();

private:
    httplib::Server server_;
    std::thread thread_;
};
// What a stand-in device answers a forwarded request for kUri, with status 200.
std::string deviceAnswer(const std::string& device);

// scripts/gateway.sh --home HOME action: its output and exit status.
Outcome gatewayScript(const TempHome& home, const std::string& action);
// zqgatewayd with these arguments (shell syntax) on home, input on its standard input.
Outcome gatewayd(const TempHome& home, const std::string& arguments, const std::string& input = "");

class GatewayRun {
public:
    // Ports: apiPort, userPort, device HTTP ports [firstHttpPort, +9], RTSP ports after them,
    // then freePort() for the test's own listeners. Nonces live long enough for a client that
    // computes its answer in another process on a busy machine, unless a test ages them itself.
    explicit GatewayRun(int nonceLifetimeSec = 60);
    ~GatewayRun() { script("stop"); }

    // scripts/gateway.sh start|stop|status; its output, then its error output.
    std::string script(const std::string& action) const {
        const Outcome outcome = gatewayScript(home_, action);
        return outcome.out + outcome.err;
    }
    void start();

    // The management API's admin, and the TELMI "admin" that port mode takes.
    const std::string& adminPassword() const { return adminPassword_; }
    const std::string& portPassword() const { return portPassword_; }
    // What the start script printed.
    const std::string& startOutput() const { return startOutput_; }
    unsigned short apiPort() const { return base_; }
    const TempHome& home() const { return home_; }
    unsigned short userPort() const { return static_cast<unsigned short>(base_ + 1); }
    unsigned short firstHttpPort() const { return static_cast<unsigned short>(base_ + 10); }
    unsigned short freePort(int n) const { return static_cast<unsigned short>(base_ + 30 + n); }

    // A management API call as admin, through curl --digest.
    Outcome api(const std::string& method, const std::string& path, const std::string& body = "") const;
    std::string apiUrl(const std::string& path) const { return localUrl(base_, path); }
    // telmictl (arguments in shell syntax) as admin: the admin password on standard input, then moreInput.
    Outcome telmictl(const std::string& arguments, const std::string& moreInput = "") const;
    // Registers a device (protocol 2 Tarn, 4 Tarn5) at 127.0.0.1:port, its RTSP source at rtspPort
    // when given; its index.
    std::string registerDevice(int protocol, const std::string& deviceID, unsigned short port,
                               unsigned short rtspPort = 0) const;

private:
    TempHome home_;
    unsigned short base_;
    std::string adminPassword_;
    std::string portPassword_;
    std::string startOutput_;
};

// Matches an outcome's withOut() or withErr() with this status, and text somewhere after it.
testing::Matcher<std::string> StatusWith(int status, const std::string& text);

// The first item of a batch call's results, which must have succeeded.
Json::Value firstResult(const Outcome& reply);
// The binding made for the device (portIndex, httpPort, rtspPort), which must have succeeded.
Json::Value bindPort(const GatewayRun& gateway, const std::string& deviceID);
void addUser(const GatewayRun& gateway, const std::string& name, const std::string& deviceID);
void switchTelmi(const GatewayRun& gateway, int enabled);

// The ports of the gateway's two ranges that something listens on.
std::set<int> listenedPorts(const GatewayRun& gateway);
// The HTTP and RTSP ports of the stored bindings, none of which may be handed out twice.
std::set<int> boundPorts(const GatewayRun& gateway);
// Whether, within eventually's patience, the gateway listens on exactly its bound ports.
testing::AssertionResult listenersInStep(const GatewayRun& gateway);

// A Tarn device with a TELMI user "tarnuser" and a Tarn5 device with a port binding, switch on.
struct TwoDevices {
    explicit TwoDevices(GatewayRun& gateway);
    StandInDevice tarn;
    std::optional<StandInDevice> tarn5;
    std::string tarn5Index;
    unsigned short httpPort = 0;
};

}  // namespace gwtest
