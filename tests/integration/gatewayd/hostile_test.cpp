// The gateway on a hostile network: clients that stall, send too much, or replay what they
// captured, while legitimate clients are served. Real sockets, curl and the gateway's
// real nginx, host service and devices.
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "GatewayRun.h"
#include "UniqueFd.h"

using namespace gwtest;

namespace {

// Connections that send nothing or, every second one when halfRequests, half a request, and then wait.
class StalledClients {
public:
    StalledClients(int count, const std::function<int()>& connect, bool halfRequests = true) {
        static const std::string kHalfRequest = "GET /TELMI/System/deviceInfo HTTP/1.1\r\nHost: gw\r\n";
        for (int i = 0; i < count; ++i) {
            const int fd = fds_.emplace_back(connect()).get();
            EXPECT_GE(fd, 0);
            if (halfRequests && i % 2 == 1) {
                EXPECT_EQ(::send(fd, kHalfRequest.data(), kHalfRequest.size(), MSG_NOSIGNAL),
                          static_cast<ssize_t>(kHalfRequest.size()));
            }
        }
    }
    // How many the gateway has closed by now.
    int closedByGateway() const {
        return static_cast<int>(std::count_if(fds_.begin(), fds_.end(), [](const gwio::UniqueFd& fd) {
            char byte;
            const ssize_t n = ::recv(fd.get(), &byte, 1, MSG_DONTWAIT);
            return n == 0 || (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK);
        }));
    }

private:
    std::vector<gwio::UniqueFd> fds_;
};

// The resident memory of the gateway's processes, in KiB, by pid.
std::map<int, long> gatewayMemory(const GatewayRun& gateway) {
    std::istringstream list(gatewayProcesses(gateway.home(), "pid=,rss="));
    std::map<int, long> sizes;
    int pid = 0;
    for (long size = 0; list >> pid >> size;) {
        sizes[pid] = size;
    }
    return sizes;
}

// A Digest answer a client computes for the challenge the gateway sent on that port.
std::string capturedAnswer(unsigned short port, const std::string& user, const std::string& password,
                           const std::string& method, const std::string& target) {
    const Outcome challenge = curl("-D - " + shellQuoted(localUrl(port, target)));
    std::smatch nonce;
    EXPECT_TRUE(std::regex_search(challenge.out, nonce, std::regex("nonce=\"([0-9a-f]+)\""))) << challenge.out;
    return pythonDigestHeader(user, "TELMI", password, method, target, nonce[1], true);
}

Outcome sendWith(const std::string& header, unsigned short port, const std::string& target,
                 const std::string& extra = "") {
    return curl(extra + " -H " + shellQuoted("Authorization: " + header) + " " + shellQuoted(localUrl(port, target)));
}

TEST(HostileClients, StalledFloodingAndReplayingClientsGetNothingWhileLegitimateOnesAreServed) {
    GatewayRun gateway;
    TwoDevices devices(gateway);
    const std::string password = gateway.portPassword();
    // Bodies over the limit are refused, chunked or not, without the gateway holding them.
    const std::string big = gateway.home().path() + "/big.bin";
    std::ofstream(big) << std::string((32 << 20) + 1, 'x');
    const std::string apiBody = gateway.home().path() + "/api.json";
    std::ofstream(apiBody) << "{\"enabled\":1,\"pad\":\"" << std::string(1 << 20, 'p') << "\"}";
    const std::map<int, long> before = gatewayMemory(gateway);
    const std::string upload = "-X POST -H 'Expect:' -H 'Content-Type: application/octet-stream' --data-binary @" + big;
    for (const std::string& chunked : {std::string(), std::string("-H 'Transfer-Encoding: chunked' ")}) {
        SCOPED_TRACE(chunked.empty() ? "Content-Length" : "chunked");
        const std::string userAnswer = capturedAnswer(gateway.userPort(), "tarnuser", kUserPassword, "POST", kUri);
        EXPECT_EQ(sendWith(userAnswer, gateway.userPort(), kUri, chunked + upload).status, 413);
        const std::string adminAnswer = capturedAnswer(devices.httpPort, "admin", password, "POST", kUri);
        EXPECT_EQ(sendWith(adminAnswer, devices.httpPort, kUri, chunked + upload).status, 413);
        const std::string apiUpload = "-X PUT -H 'Expect:' " + chunked + "--data-binary @" + apiBody + " ";
        EXPECT_EQ(curl(apiUpload + shellQuoted(gateway.apiUrl("/api/telmi"))).status, 413);
    }
    int measured = 0;
    for (const auto& [pid, size] : gatewayMemory(gateway)) {
        if (before.count(pid) == 1) {
            ++measured;
            // Half a body: a process that held one would grow by twice this; sanitizer builds
            // keep freed memory aside and grow by several MiB from the checks alone.
            EXPECT_LT(size - before.at(pid), 16 * 1024)
                << "process " << pid << " grew from " << before.at(pid) << " KiB";
        }
    }
    EXPECT_GE(measured, 3) << "the host service, nginx's master and a worker";
    EXPECT_EQ(digestCurl(gateway.userPort(), "tarnuser", kUserPassword, "-X POST --data-binary x").status, 404)
        << "a body within the limit reaches the stand-in device, which answers GET only";

    // Connections that stall hold up no legitimate client.
    const StalledClients userModeStalls(256, [&] { return connectTcp(gateway.userPort()); });
    const StalledClients portModeStalls(256, [&] { return connectTcp(devices.httpPort); });
    const StalledClients apiStalls(64, [&] { return connectTcp(gateway.apiPort()); });
    // Only nginx should reach the admission check's socket; what else connects is bounded. Silent
    // only: one closed at once may not take a half request.
    const std::string admission = gateway.home().path() + "/run/telmi-admission.sock";
    const StalledClients admissionStalls(
        300, [&] { return connectUnix(admission); }, false);
    EXPECT_TRUE(eventually([&] { return admissionStalls.closedByGateway() >= 300 - 256; }));
    {
        // A question in two pieces, then one more back to back: each is answered once, in order.
        const int asker = connectUnix(admission);
        const std::string question = "GET / HTTP/1.1\r\nX-TELMI-Mode: nowhere\r\n\r\n";
        const std::string pieces[] = {question.substr(0, 20), question.substr(20) + question};
        std::string answers;
        for (const std::string& piece : pieces) {
            EXPECT_EQ(::send(asker, piece.data(), piece.size(), MSG_NOSIGNAL), static_cast<ssize_t>(piece.size()));
            ::usleep(100 * 1000);
        }
        const timeval patience {5, 0};
        ::setsockopt(asker, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
        char buffer[4096];
        for (ssize_t n = 0; answers.rfind("\r\n\r\n") == answers.find("\r\n\r\n") &&
                            (n = ::recv(asker, buffer, sizeof(buffer), 0)) > 0;) {
            answers.append(buffer, static_cast<size_t>(n));
        }
        ::close(asker);
        const std::string one = "HTTP/1.1 400 Refused\r\nContent-Length: 0\r\nX-TELMI-Status: 400\r\n";
        EXPECT_EQ(answers.find(one), 0u) << answers;
        EXPECT_NE(answers.find(one, one.size()), std::string::npos) << answers;
    }

    const std::string inOneSecond = "--max-time 1";
    EXPECT_EQ(digestCurl(gateway.userPort(), "tarnuser", kUserPassword, inOneSecond).withOut(),
              deviceAnswer("tarn-cam"));
    EXPECT_EQ(digestCurl(devices.httpPort, "admin", password, inOneSecond).withOut(), deviceAnswer("tarn5-cam"));
    EXPECT_EQ(digestCurl(gateway.apiPort(), "admin", gateway.adminPassword(), inOneSecond, "/api/telmi").withOut(),
              "200 {\"enabled\":1}\n");

    // A captured answer opens nothing else, on a second device port either.
    StandInDevice third("third-cam", gateway.freePort(2));
    gateway.registerDevice(4, "TARN50002", gateway.freePort(2));
    const auto otherPort = static_cast<unsigned short>(bindPort(gateway, "TARN50002")["httpPort"].asUInt());
    const auto portAnswer = [&] { return capturedAnswer(devices.httpPort, "admin", password, "GET", kUri); };
    const std::string captured = portAnswer();
    EXPECT_EQ(sendWith(captured, devices.httpPort, kUri).status, 200);
    const Outcome replayed = sendWith(captured, devices.httpPort, kUri, "-D -");
    EXPECT_EQ(replayed.status, 401);
    EXPECT_THAT(replayed.out, HasSubstr("stale=\"TRUE\"")) << "a replay is never counted as a failure";
    EXPECT_EQ(sendWith(captured, devices.httpPort, "/TELMI/System/reboot").withOut(),
              "400 the Digest uri does not name this request\n");
    // The port-mode credential administers nothing, and the API's opens no device port.
    EXPECT_EQ(digestCurl(gateway.apiPort(), "admin", password, "", "/api/telmi").status, 401);
    EXPECT_EQ(digestCurl(devices.httpPort, "admin", gateway.adminPassword()).status, 401);
    // Answers for one device port are stale on another: its client may answer again there.
    const Outcome elsewhere = sendWith(portAnswer(), otherPort, kUri, "-D -");
    EXPECT_EQ(elsewhere.status, 401);
    EXPECT_THAT(elsewhere.out, HasSubstr("stale=\"TRUE\""));
    // A parameter the text search of "uri=\"" would find first is refused outright.
    const std::string crafted =
        std::regex_replace(portAnswer(), std::regex("^Digest "), "Digest xuri=\"/api/users\", ");
    EXPECT_EQ(sendWith(crafted, devices.httpPort, kUri).withOut(),
              "400 the Authorization header is not a well-formed Digest answer\n");
    // A target sent percent-encoded is answered over exactly that text.
    EXPECT_EQ(digestCurl(devices.httpPort, "admin", password, "", "/TELMI/a%20b?q=%41").withOut(),
              "200 device=tarn5-cam method=GET target=/TELMI/a%20b?q=%41 credentials=no");

    // A request's head has 10 s to arrive; connections that miss it are closed.
    EXPECT_TRUE(eventually([&] {
        return userModeStalls.closedByGateway() == 256 && portModeStalls.closedByGateway() == 256 &&
               apiStalls.closedByGateway() == 64;
    }));
}

}  // namespace
