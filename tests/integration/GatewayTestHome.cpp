#include "GatewayTestHome.h"

#include "ZQBase.h"
#include "ZQGatewayDevices.h"
#include "ZQMediaFrame.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace gwtest {

TempHome::TempHome() {
    char pattern[] = "/tmp/zqgw-test-XXXXXX";
    path_ = ::mkdtemp(pattern) != nullptr ? pattern : "";
    // nginx serves the management API wherever it runs: on a port of the test's own, and no
    // user-mode port unless a test asks for one.
    std::ofstream(path_ + "/gateway.json")
        << "{\"managementPort\": " << testPortBlock(1) << ", \"telmiUserPort\": 0}\n";
}

TempHome::~TempHome() {
    // A test that failed half-way may leave the home's nginx, media daemon or service running.
    for (const char* pidFile : {"nginx/nginx.pid", "run/gatewayd.pid", "run/mediad.pid"}) {
        if (const int pid = pidIn(*this, pidFile); pid > 0) {
            ::kill(pid, SIGTERM);
        }
    }
    if (!path_.empty()) {
        std::system(("rm -rf '" + path_ + "'").c_str());
    }
}

namespace {

int failuresSoFar() {
    const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
    int failures = 0;
    for (int part = 0; test != nullptr && part < test->result()->total_part_count(); ++part) {
        failures += test->result()->GetTestPartResult(part).failed() ? 1 : 0;
    }
    return failures;
}

template <class Address>
int connectTo(const Address& address, const sockaddr_in* source = nullptr) {
    const int fd = ::socket(reinterpret_cast<const sockaddr&>(address).sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 &&
        ((source != nullptr && ::bind(fd, reinterpret_cast<const sockaddr*>(source), sizeof(*source)) != 0) ||
         ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)) {
        ::close(fd);
        return -1;
    }
    return fd;
}

}  // namespace

int startChild(const TempHome& home, const std::function<void()>& body) {
    std::fflush(nullptr);
    pid_t child = ::fork();
    if (child == 0) {
        ::setenv("ZQ_GATEWAY_HOME", home.path().c_str(), 1);
        const int inherited = failuresSoFar();
        body();
        std::fflush(nullptr);
        // The child inherits its parent's failures: only its own count.
        ::_exit(failuresSoFar() > inherited ? 1 : 0);
    }
    return child;
}

bool finished(int child) {
    int status = 0;
    bool passed = child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (!passed) {
        ADD_FAILURE() << "child process " << child << " failed (its output above says why)";
    }
    return passed;
}

bool inChild(const TempHome& home, const std::function<void()>& body) { return finished(startChild(home, body)); }

void changeSettings(const std::function<void(ZQGateway::tagGatewaySettings&)>& change) {
    ZQGateway::tagGatewaySettings settings;
    ZQ_Gateway_GetSettings(settings);
    change(settings);
    ASSERT_EQ(ZQ_Gateway_SetSettings(settings), 0);
}

std::string registerDevice(uint8_t protocol, const std::string& id, const std::string& rtspAddress,
                           const std::string& telmiAddress) {
    ZQGateway::tagDeviceInfo info;
    info.protocol = protocol;
    (protocol == 4 ? info.tarn5DeviceID : info.tarnDeviceID) = id;
    info.name = "camera " + id;
    info.telmiAddress = telmiAddress;
    info.rtspAddress = rtspAddress;
    std::string index;
    EXPECT_EQ(ZQ_DeviceMgr_RegisterDevice(index, info), 0);
    return index;
}

std::string fileText(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

int pidIn(const TempHome& home, const std::string& pidFile) {
    return std::atoi(fileText(home.path() + "/" + pidFile).c_str());
}

std::string gatewayProcesses(const TempHome& home, const std::string& columns) {
    const std::string nginx = std::to_string(pidIn(home, "nginx/nginx.pid"));
    return runShell("ps -o " + columns + " -p '" + nginx + " " + std::to_string(pidIn(home, "run/gatewayd.pid")) + " " +
                    std::to_string(pidIn(home, "run/mediad.pid")) + "' --ppid " + nginx);
}

bool eventually(const std::function<bool()>& ready) {
    for (int i = 0; i < 300; ++i) {
        if (ready()) {
            return true;
        }
        ::usleep(50 * 1000);
    }
    return ready();
}

std::string pythonDigestHeader(const std::string& user, const std::string& realm, const std::string& password,
                               const std::string& method, const std::string& uri, const std::string& nonce,
                               bool withQop) {
    static const char* const kScript =
        "import hashlib, sys\n"
        "u, r, p, m, uri, n, q = sys.argv[1:]\n"
        "h = lambda s: hashlib.md5(s.encode()).hexdigest()\n"
        "ha1, ha2 = h(f'{u}:{r}:{p}'), h(f'{m}:{uri}')\n"
        "qop, alg = (', qop=auth, nc=00000001, cnonce=\"0a4f113b\"', ', algorithm=MD5') if q == '1' else ('', '')\n"
        "resp = h(f'{ha1}:{n}:00000001:0a4f113b:auth:{ha2}' if q == '1' else f'{ha1}:{n}:{ha2}')\n"
        "print(f'Digest username=\"{u}\", realm=\"{r}\", nonce=\"{n}\", uri=\"{uri}\"{qop}, '\n"
        "      f'response=\"{resp}\"{alg}', end='')\n";
    return runPython(kScript, {user, realm, password, method, uri, nonce, withQop ? "1" : "0"});
}

unsigned short testPortBlock(int count) {
    // Below the kernel's ephemeral range (32768 up), so no outgoing connection takes a port
    // between the check and the test's bind; clear of the gateway's default port ranges. Blocks
    // of 100 ports are claimed with a lock file held until the process ends, so tests running at
    // once, even from two build trees, never draw the same block.
    constexpr int kTestPortsFirst = 22000;
    constexpr int kTestPortsEnd = 27000;  // 27000-29999 belong to the end-to-end tour
    constexpr int kBlock = 100;
    constexpr int kBlocks = (kTestPortsEnd - kTestPortsFirst) / kBlock;
    const int startBlock = (::getpid() * 37) % kBlocks;
    for (int i = 0; i < kBlocks && count >= 1 && count <= kBlock; ++i) {
        const int first = kTestPortsFirst + ((startBlock + i) % kBlocks) * kBlock;
        const std::string lockPath = "/tmp/zqgw-test-ports-" + std::to_string(first) + ".lock";
        const int fd = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        if (fd < 0) {
            continue;
        }
        // Within the block, start somewhere new each run: ports a test just used may still be in
        // TIME_WAIT, which some listeners do not bind over.
        const int start = first + (::getpid() * 13) % (kBlock - count + 1);
        bool free = ::flock(fd, LOCK_EX | LOCK_NB) == 0;
        for (int port = start; port < start + count && free; ++port) {
            free = CheckPort(port, 1) == 0;
        }
        if (free) {
            return static_cast<unsigned short>(start);  // the descriptor stays open: the claim lasts
        }
        ::close(fd);
    }
    ADD_FAILURE() << "no free test ports";
    return 0;
}

bool listening(unsigned short port) { return CheckPort(port, 1) == -1; }

int connectTcp(unsigned short port, const char* source) {
    sockaddr_in local {AF_INET, 0, {}, {}};
    ::inet_pton(AF_INET, source, &local.sin_addr);
    return connectTo(sockaddr_in {AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}}, &local);
}

int connectUnix(const std::string& path) {
    sockaddr_un address {AF_UNIX, {}};
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return connectTo(address);
}

std::string readMediaFrame(int fd) {
    unsigned char header[ZQGateway::kMediaFrameHeader];
    if (::recv(fd, header, sizeof(header), MSG_WAITALL) != static_cast<ssize_t>(sizeof(header))) {
        return "";
    }
    std::string payload(ZQGateway::decodeMediaFrameLength(header), '\0');
    const ssize_t n = ::recv(fd, payload.data(), payload.size(), MSG_WAITALL);
    return n == static_cast<ssize_t>(payload.size()) ? payload : "";
}

Listener::Listener(unsigned short port, Family family) {
    const bool v4 = family == Family::ipv4;
    const sockaddr_in address {AF_INET, htons(port), {htonl(INADDR_ANY)}, {}};
    const sockaddr_in6 address6 {AF_INET6, htons(port), 0, in6addr_any, 0};
    fd_ = ::socket(v4 ? AF_INET : AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int yes = 1;
    ::setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    const bool bound = v4 ? ::bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0
                          : ::setsockopt(fd_, IPPROTO_IPV6, IPV6_V6ONLY, &yes, sizeof(yes)) == 0 &&
                                ::bind(fd_, reinterpret_cast<const sockaddr*>(&address6), sizeof(address6)) == 0;
    if (!bound || ::listen(fd_, 4) != 0) {
        ::close(fd_);
        fd_ = -1;
    }
}

Listener::~Listener() {
    if (fd_ >= 0) {
        ::close(fd_);
    }
}

}  // namespace gwtest
