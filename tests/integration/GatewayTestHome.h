// Helpers of the gateway integration tests: every scenario runs in child processes over a
// fresh temporary gateway home, since a process resolves its home once.
#pragma once

// What the integration tests share beside these helpers, so that a test includes only its own extras.
#include <gmock/gmock.h>

#include <atomic>
#include <cstdint>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ChildProgram.h"
#include "ZQGatewayHome.h"

namespace gwtest {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

// A temporary gateway home, removed (with any nginx running from it stopped) at the end. Its
// management port is claimed for the test, and it has no user-mode port.
class TempHome {
public:
    TempHome();
    ~TempHome();
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

// Runs body in a child process whose gateway home is home; the child's failed expectations
// are printed by it and make this return false and fail the test. startChild and finished
// run one concurrently.
bool inChild(const TempHome& home, const std::function<void()>& body);
int startChild(const TempHome& home, const std::function<void()>& body);
bool finished(int child);

// Changes the settings of the child's gateway home.
void changeSettings(const std::function<void(ZQGateway::tagGatewaySettings&)>& change);

// Registers a device in the child's device store (protocol 2 Tarn, 4 Tarn5); its index.
std::string registerDevice(uint8_t protocol, const std::string& id,
                           const std::string& rtspAddress = "rtsp://10.0.0.9:554",
                           const std::string& telmiAddress = "http://10.0.0.9:80");

// The file's text; what was read when the file vanishes meanwhile (a process that ended).
std::string fileText(const std::string& path);
// The pid in the home's pid file (such as "run/mediad.pid"); 0 when there is none.
int pidIn(const TempHome& home, const std::string& pidFile);
// ps's columns (such as "pid=,rss=") of the home's host service, media daemon, nginx master
// and nginx workers, a line each.
std::string gatewayProcesses(const TempHome& home, const std::string& columns);

// Calls ready every 50 ms, for at most 15 s, until it returns true; its last answer.
bool eventually(const std::function<bool()>& ready);

// The Authorization header a client computes for these credentials, by Python's hashlib (an
// implementation independent of the gateway's); qop "auth" when withQop.
std::string pythonDigestHeader(const std::string& user, const std::string& realm, const std::string& password,
                               const std::string& method, const std::string& uri, const std::string& nonce,
                               bool withQop);

// The first of count (at most 100) consecutive ports in 22000-26999 on which nothing listens,
// claimed for this process so that parallel tests never share them; 0, failing the test, when
// none is left.
unsigned short testPortBlock(int count);

// Whether a TCP socket listens on port, whoever holds it.
bool listening(unsigned short port);

// A connection to 127.0.0.1:port from source (another loopback address: another client), or
// to the Unix socket at path; -1 when refused.
int connectTcp(unsigned short port, const char* source = "127.0.0.1");
int connectUnix(const std::string& path);

// The payload of the next frame on a media command connection; empty when the connection ends first.
std::string readMediaFrame(int fd);

// A TCP socket listening on the port on every IPv4 address, or on every IPv6 address only;
// closed on destruction.
class Listener {
public:
    enum class Family { ipv4, ipv6Only };
    explicit Listener(unsigned short port, Family family = Family::ipv4);
    ~Listener();
    bool ok() const { return fd_ >= 0; }
    int fd() const { return fd_; }

private:
    int fd_;
};

}  // namespace gwtest
