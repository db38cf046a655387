// One reference gateway for a test: a temporary home with test ports, started and stopped with
// scripts/gateway.sh, plus the clients the tests speak through (curl, Python requests) and a
// stand-in device.
#pragma once

#include <httplib.h>

#include "GatewayTestHome.h"

namespace gwtest {

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
    ~GatewayRun();

    // scripts/gateway.sh start|stop|status; its output, then its error output.
    std::string script(const std::string& action);
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
    std::string apiUrl(const std::string& path) const;
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

}  // namespace gwtest
