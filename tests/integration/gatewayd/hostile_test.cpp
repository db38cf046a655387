// The gateway on a hostile network: clients that stall, send too much, or replay what they
// captured. Real sockets, curl and the gateway's real nginx, host service and devices.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "GatewayScenario.h"

using namespace gwtest;
using testing::HasSubstr;

namespace {

// Connections that send nothing, or half a request, and then wait.
class StalledClients {
public:
    StalledClients(unsigned short port, int count) {
        for (int i = 0; i < count; ++i) {
            const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
            sockaddr_in address {};
            address.sin_family = AF_INET;
            address.sin_port = htons(port);
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            if (fd < 0 || ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
                ADD_FAILURE() << "stalled client " << i << " could not connect to port " << port;
                if (fd >= 0) {
                    ::close(fd);
                }
                continue;
            }
            static const std::string kHalfRequest = "GET /TELMI/System/deviceInfo HTTP/1.1\r\nHost: gw\r\n";
            if (i % 2 == 1) {
                EXPECT_EQ(::send(fd, kHalfRequest.data(), kHalfRequest.size(), MSG_NOSIGNAL),
                          static_cast<ssize_t>(kHalfRequest.size()));
            }
            fds_.push_back(fd);
        }
    }
    ~StalledClients() {
        for (int fd : fds_) {
            ::close(fd);
        }
    }
    // How many the gateway has closed by now.
    int closedByGateway() const {
        int closed = 0;
        for (int fd : fds_) {
            char byte;
            const ssize_t n = ::recv(fd, &byte, 1, MSG_DONTWAIT);
            closed += n == 0 || (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK) ? 1 : 0;
        }
        return closed;
    }

private:
    std::vector<int> fds_;
};

long residentKiB(const std::string& pid) {
    std::ifstream status("/proc/" + pid + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::stol(line.substr(6));
        }
    }
    return 0;
}

// The resident memory of the host service and of every nginx process of the home, in KiB.
std::vector<long> gatewayMemory(const GatewayRun& gateway) {
    const std::string home = gateway.home().path();
    std::vector<long> sizes;
    const std::string pids = runShell("cat " + home + "/run/gatewayd.pid; pgrep -P \"$(cat " + home +
                                      "/nginx/nginx.pid)\"; cat " + home + "/nginx/nginx.pid");
    std::istringstream list(pids);
    for (std::string pid; list >> pid;) {
        sizes.push_back(residentKiB(pid));
    }
    return sizes;
}

// A Digest answer a client computes for the challenge the gateway sent on that port.
std::string capturedAnswer(unsigned short port, const std::string& user, const std::string& password,
                           const std::string& method, const std::string& target) {
    const Outcome challenge = curl("-D - " + shellQuoted("http://127.0.0.1:" + std::to_string(port) + target));
    std::smatch nonce;
    EXPECT_TRUE(std::regex_search(challenge.out, nonce, std::regex("nonce=\"([0-9a-f]+)\""))) << challenge.out;
    return pythonDigestHeader(user, "TELMI", password, method, target, nonce[1], true);
}

Outcome sendWith(const std::string& header, unsigned short port, const std::string& target,
                 const std::string& extra = "") {
    return curl(extra + " -H " + shellQuoted("Authorization: " + header) + " " +
                shellQuoted("http://127.0.0.1:" + std::to_string(port) + target));
}

TEST(HostileClients, StalledConnectionsNeitherDelayALegitimateClientNorOutstayTheirDeadline) {
    GatewayRun gateway;
    TwoDevices devices(gateway);
    const unsigned short apiPort = static_cast<unsigned short>(gateway.userPort() - 1);
    const StalledClients userModeStalls(gateway.userPort(), 256);
    const StalledClients portModeStalls(devices.httpPort, 256);
    const StalledClients apiStalls(apiPort, 64);

    const std::string inOneSecond = "--max-time 1 ";
    EXPECT_EQ(curl(inOneSecond + "--digest -u " + shellQuoted("tarnuser:" + kUserPassword) + " " +
                   shellQuoted(url(gateway.userPort())))
                  .withOut(),
              deviceAnswer("tarn-cam"));
    EXPECT_EQ(curl(inOneSecond + "--digest -u " + shellQuoted("admin:" + gateway.portPassword()) + " " +
                   shellQuoted(url(devices.httpPort)))
                  .withOut(),
              deviceAnswer("tarn5-cam"));
    EXPECT_EQ(curl(inOneSecond + "--digest -u " + shellQuoted("admin:" + gateway.adminPassword()) + " " +
                   shellQuoted(gateway.apiUrl("/api/telmi")))
                  .withOut(),
              "200 {\"enabled\":1}\n");

    // A request's head has 10 s to arrive; connections that miss it are closed.
    ::sleep(13);
    EXPECT_EQ(userModeStalls.closedByGateway(), 256);
    EXPECT_EQ(portModeStalls.closedByGateway(), 256);
    EXPECT_EQ(apiStalls.closedByGateway(), 64);
}

TEST(HostileClients, BodiesOverTheLimitAreRefusedChunkedOrNotWithoutTheGatewayHoldingThem) {
    GatewayRun gateway;
    TwoDevices devices(gateway);
    const std::string big = gateway.home().path() + "/big.bin";
    std::ofstream(big) << std::string((32 << 20) + 1, 'x');
    const std::string apiBody = gateway.home().path() + "/api.json";
    std::ofstream(apiBody) << "{\"enabled\":1,\"pad\":\"" << std::string(1 << 20, 'p') << "\"}";
    const std::vector<long> before = gatewayMemory(gateway);

    const std::string upload = "-X POST -H 'Expect:' -H 'Content-Type: application/octet-stream' --data-binary @" + big;
    for (const std::string& chunked : {std::string(), std::string("-H 'Transfer-Encoding: chunked' ")}) {
        SCOPED_TRACE(chunked.empty() ? "Content-Length" : "chunked");
        const std::string userAnswer = capturedAnswer(gateway.userPort(), "tarnuser", kUserPassword, "POST", kUri);
        EXPECT_EQ(sendWith(userAnswer, gateway.userPort(), kUri, chunked + upload).status, 413);
        const std::string adminAnswer = capturedAnswer(devices.httpPort, "admin", gateway.portPassword(), "POST", kUri);
        EXPECT_EQ(sendWith(adminAnswer, devices.httpPort, kUri, chunked + upload).status, 413);
        EXPECT_EQ(curl("-X PUT -H 'Expect:' " + chunked + "--data-binary @" + apiBody + " " +
                       shellQuoted(gateway.apiUrl("/api/telmi")))
                      .status,
                  413);
    }
    const std::vector<long> after = gatewayMemory(gateway);
    ASSERT_EQ(before.size(), after.size());
    for (size_t i = 0; i < before.size(); ++i) {
        EXPECT_LT(after[i] - before[i], 8 * 1024) << "process " << i << " grew from " << before[i] << " KiB";
    }
    // A body within the limit still reaches its device.
    EXPECT_EQ(curl("--digest -u " + shellQuoted("tarnuser:" + kUserPassword) + " -X POST --data-binary x " +
                   shellQuoted(url(gateway.userPort())))
                  .status,
              404)
        << "the stand-in device answers GET only";
}

TEST(HostileClients, ACapturedAnswerOpensNothingElse) {
    GatewayRun gateway;
    TwoDevices devices(gateway);
    StandInDevice third("third-cam", gateway.freePort(2));
    gateway.registerDevice(4, "TARN50002", gateway.freePort(2));
    const Outcome bound = gateway.api("POST", "/api/ports", "{\"deviceIDs\":[\"TARN50002\"]}");
    const auto otherPort = static_cast<unsigned short>(firstResult(bound)["httpPort"].asUInt());
    const std::string password = gateway.portPassword();

    const std::string captured = capturedAnswer(devices.httpPort, "admin", password, "GET", kUri);
    EXPECT_EQ(sendWith(captured, devices.httpPort, kUri).status, 200);
    const Outcome replayed = sendWith(captured, devices.httpPort, kUri, "-D -");
    EXPECT_EQ(replayed.status, 401);
    EXPECT_THAT(replayed.out, HasSubstr("stale=\"TRUE\"")) << "a replay is never counted as a failure";
    EXPECT_EQ(sendWith(captured, devices.httpPort, "/TELMI/System/reboot").withOut(),
              "400 the Digest uri does not name this request\n");
    EXPECT_EQ(sendWith(captured, gateway.userPort(), kUri).status, 401);
    EXPECT_EQ(curl("-H " + shellQuoted("Authorization: " + captured) + " -X POST --data '{\"users\":[]}' " +
                   shellQuoted(gateway.apiUrl("/api/users")))
                  .status,
              401);

    // The port-mode credential administers nothing, and the API's opens no device port.
    EXPECT_EQ(curl("--digest -u " + shellQuoted("admin:" + password) + " " + shellQuoted(gateway.apiUrl("/api/telmi")))
                  .status,
              401);
    EXPECT_EQ(digestCurl(devices.httpPort, "admin", gateway.adminPassword()).status, 401);

    // Answers for one device port are stale on another: its client may answer again there.
    const std::string forFirst = capturedAnswer(devices.httpPort, "admin", password, "GET", kUri);
    const Outcome elsewhere = sendWith(forFirst, otherPort, kUri, "-D -");
    EXPECT_EQ(elsewhere.status, 401);
    EXPECT_THAT(elsewhere.out, HasSubstr("stale=\"TRUE\""));

    // A parameter the text search of "uri=\"" would find first is refused outright.
    const std::string fresh = capturedAnswer(devices.httpPort, "admin", password, "GET", kUri);
    const std::string crafted = std::regex_replace(fresh, std::regex("^Digest "), "Digest xuri=\"/api/users\", ");
    EXPECT_EQ(sendWith(crafted, devices.httpPort, kUri).withOut(),
              "400 the Authorization header is not a well-formed Digest answer\n");

    // A target sent percent-encoded is answered over exactly that text.
    EXPECT_EQ(curl("--digest -u " + shellQuoted("admin:" + password) + " " +
                   shellQuoted("http://127.0.0.1:" + std::to_string(devices.httpPort) + "/TELMI/a%20b?q=%41"))
                  .withOut(),
              "200 device=tarn5-cam method=GET target=/TELMI/a%20b?q=%41 credentials=no");
}

TEST(HostileClients, AnIpv6ClientIsLockedOutApartFromIpv4Ones) {
    const int probe = ::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in6 loopback {};
    loopback.sin6_family = AF_INET6;
    loopback.sin6_addr = in6addr_loopback;
    const bool ipv6 = probe >= 0 && ::bind(probe, reinterpret_cast<const sockaddr*>(&loopback), sizeof(loopback)) == 0;
    ::close(probe);
    if (!ipv6) {
        GTEST_SKIP() << "this host has no IPv6 loopback";
    }
    GatewayRun gateway;
    TwoDevices devices(gateway);
    const std::string v6 = "http://[::1]:" + std::to_string(devices.httpPort) + kUri;
    const std::string admin = shellQuoted("admin:" + gateway.portPassword());
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(curl("--digest -u admin:Wrong!Pass1 " + shellQuoted(v6)).status, 401);
    }
    EXPECT_THAT(curl("--digest -u " + admin + " " + shellQuoted(v6)).withOut(),
                testing::StartsWith("401 too many failed attempts: locked out for "));
    EXPECT_EQ(digestCurl(devices.httpPort, "admin", gateway.portPassword()).withOut(), deviceAnswer("tarn5-cam"));
}

}  // namespace
