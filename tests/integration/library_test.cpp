// The real libZQTELMIMgrBus.so, loaded with dlopen as a gateway host loads it, on the
// reference platform in a temporary gateway home: no test double anywhere but the media
// daemon's stand-in.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <regex>
#include <set>
#include <sys/wait.h>

#include "GatewayTestHome.h"
#include "MediaStandIn.h"
#include "ZQBase.h"
#include "ZQGatewayDevices.h"
#include "ZQGatewayHome.h"
#include "ZQTELMIMgrBus.h"

using gwtest::inChild;
using gwtest::TempHome;
using namespace ZQTELMIMgrBus;

namespace {

void* library() {
    static void* handle = dlopen(ZQ_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
    EXPECT_NE(handle, nullptr) << dlerror();
    return handle;
}

#define ZQ_CALL(name) (*reinterpret_cast<decltype(&name)>(dlsym(library(), #name)))

const char* const kUri = "/TELMI/System/deviceInfo";

std::string registerCamera(uint8_t protocol, const std::string& id) {
    ZQGateway::tagDeviceInfo info;
    info.protocol = protocol;
    (protocol == 4 ? info.tarn5DeviceID : info.tarnDeviceID) = id;
    info.telmiAddress = "http://10.1.0.7:80";
    info.rtspAddress = "rtsp://10.1.0.7:554";
    std::string index;
    EXPECT_EQ(ZQ_DeviceMgr_RegisterDevice(index, info), 0);
    return index;
}

void useSettings(unsigned short firstPort) {
    ZQGateway::tagGatewaySettings s;
    ZQ_Gateway_GetSettings(s);
    s.nonceLifetimeSec = 2;
    s.httpPortFirst = firstPort;
    s.httpPortLast = static_cast<uint16_t>(firstPort + 9);
    s.rtspPortFirst = static_cast<uint16_t>(firstPort + 10);
    s.rtspPortLast = static_cast<uint16_t>(firstPort + 19);
    s.logFile = "";  // stderr, next to the test's own output
    s.logLevel = 4;
    ASSERT_EQ(ZQ_Gateway_SetSettings(s), 0);
    ASSERT_EQ(ZQ_Gateway_Init("Adm1n!pass"), 0);
}

tagTELMIAuthReq authRequest(const std::string& header, const char* lockKey, uint16_t httpPort = 0) {
    tagTELMIAuthReq req {};
    req.httpPort = httpPort;
    std::strncpy(req.lockKey, lockKey, sizeof(req.lockKey) - 1);
    std::strncpy(req.authHeader, header.c_str(), sizeof(req.authHeader) - 1);
    return req;
}

// Asks as a client that has no credentials yet and takes the nonce of the challenge.
std::string challengeNonce() {
    tagTelmiAuthRsp rsp {};
    EXPECT_EQ(ZQ_CALL(ZQ_TELMIMgrBus_CheckDigest)(rsp, "GET", authRequest("Digest realm=\"TELMI\"", "probe"),
                                                  ZQConfigMgr::userMode), 1);
    std::cmatch nonce;
    EXPECT_TRUE(std::regex_search(rsp.challenge, nonce, std::regex("nonce=\"([0-9a-f]+)\""))) << rsp.challenge;
    return nonce[1];
}

int checkAs(tagTelmiAuthRsp& rsp, const std::string& user, const std::string& password, const std::string& nonce,
            const char* lockKey, ZQConfigMgr::TELMIMode mode = ZQConfigMgr::userMode, uint16_t httpPort = 0) {
    rsp = tagTelmiAuthRsp {};
    const std::string header = gwtest::pythonDigestHeader(user, "TELMI", password, "GET", kUri, nonce, true);
    return ZQ_CALL(ZQ_TELMIMgrBus_CheckDigest)(rsp, "GET", authRequest(header, lockKey, httpPort), mode);
}

std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> portList() {
    std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> ports;
    tagTelmiQueryRsp rsp {};
    tagTelmiQueryReq req {};
    req.maxResults = 100;
    EXPECT_EQ(ZQ_CALL(ZQ_TELMIMgrBus_QueryTELMIPortList)(ports, rsp, req), 0);
    return ports;
}

int httpStatus(const std::shared_ptr<ZQDeviceMgr::CTELMIPort>& port) {
    return dynamic_cast<ZQGateway::CGatewayPort&>(*port).getHttpPortStatus();
}

bool listening(unsigned short port) { return CheckPort(port, 1) == -1; }

}  // namespace

TEST(LibraryOnGatewayTest, UsersDigestAndLockOutSurviveRestarts) {
    TempHome home;
    const unsigned short first = gwtest::testPortBlock(20);
    std::string deviceIndex;
    inChild(home, [&] {
        useSettings(first);
        deviceIndex = registerCamera(2, "T100");
        std::ofstream(home.path() + "/device.txt") << deviceIndex;
        std::vector<ZQDeviceMgr::tagAddUserRet> results;
        std::vector<tagTELMIUserInput> users(1);
        std::memset(&users[0], 0, sizeof(users[0]));
        std::strcpy(users[0].userName, "alice");
        std::strcpy(users[0].password, "Gw#Pass2024");
        std::strcpy(users[0].deviceID, "T100");
        ASSERT_EQ(ZQ_CALL(ZQ_TELMIMgrBus_AddUser)(results, users), 0);
        ASSERT_EQ(results.size(), 1u);
        EXPECT_EQ(results[0].result, 0);
    });
    std::ifstream(home.path() + "/device.txt") >> deviceIndex;
    inChild(home, [&] {
        std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIUser>> users;
        tagTelmiQueryRsp listed {};
        tagTelmiQueryReq req {};
        req.maxResults = 10;
        ASSERT_EQ(ZQ_CALL(ZQ_TELMIMgrBus_QueryUserList)(users, listed, req), 0);
        ASSERT_EQ(users.size(), 1u) << "the user survived the restart";
        EXPECT_EQ(users[0]->getUserName(), "alice");

        const std::string nonce = challengeNonce();
        tagTelmiAuthRsp rsp;
        ASSERT_EQ(checkAs(rsp, "alice", "Gw#Pass2024", nonce, "10.0.0.1"), 0);
        EXPECT_STREQ(rsp.deviceIndex, deviceIndex.c_str());

        std::string forged = nonce;
        forged[30] = forged[30] == 'a' ? 'b' : 'a';
        EXPECT_EQ(checkAs(rsp, "alice", "Gw#Pass2024", forged, "10.0.0.9"), 1028);
        EXPECT_EQ(rsp.leftTryNum, 6) << "a forged nonce counts as a wrong answer";
        EXPECT_NE(std::strstr(rsp.challenge, "stale=\"FALSE\""), nullptr);

        for (int i = 1; i <= 7; ++i) {
            EXPECT_EQ(checkAs(rsp, "alice", "guess" + std::to_string(i), nonce, "10.0.0.1"), 1028);
            EXPECT_EQ(rsp.leftTryNum, 7 - i);
        }
        EXPECT_EQ(checkAs(rsp, "alice", "Gw#Pass2024", nonce, "10.0.0.1"), 1028) << "locked out";
        EXPECT_EQ(rsp.leftTryNum, 0);
        EXPECT_GT(rsp.remainLockTime, 0);

        ::sleep(4);  // past the nonce lifetime of 2 s
        EXPECT_EQ(checkAs(rsp, "alice", "Gw#Pass2024", nonce, "10.0.0.9"), 1028);
        EXPECT_NE(std::strstr(rsp.challenge, "stale=\"TRUE\""), nullptr) << "a stale nonce, told apart";
        EXPECT_EQ(rsp.leftTryNum, 6) << "and not counted";
    });
    inChild(home, [&] {
        tagTelmiAuthRsp rsp;
        const std::string nonce = challengeNonce();
        EXPECT_EQ(checkAs(rsp, "alice", "Gw#Pass2024", nonce, "10.0.0.1"), 1028) << "the lock survived a restart";
        EXPECT_EQ(rsp.leftTryNum, 0);
        EXPECT_EQ(checkAs(rsp, "alice", "Gw#Pass2024", nonce, "10.0.0.2"), 0);
    });
}

TEST(LibraryOnGatewayTest, BindingsDriveTheGatewaysNginx) {
    TempHome home;
    const unsigned short first = gwtest::testPortBlock(20);
    ASSERT_NE(first, 0);
    inChild(home, [&] {
        useSettings(first);
        registerCamera(4, "CAM-1");
        registerCamera(4, "CAM-2");
        gwtest::MediaStandIn media;
        ASSERT_TRUE(media.ok());
        ZQ_CALL(ZQ_TELMIMgrBus_Start)();
        std::vector<tagBindPortRet> rets;
        ASSERT_EQ(ZQ_CALL(ZQ_TELMIMgrBus_BindPort)(rets, {"CAM-1", "CAM-2"}), 0);
        ASSERT_EQ(rets.size(), 2u);
        ASSERT_EQ(rets[0].resultCode, 0);
        ASSERT_EQ(rets[1].resultCode, 0);
        const unsigned short nginxPort = rets[0].port->getHttpPort(), takenPort = rets[1].port->getHttpPort();
        EXPECT_NE(nginxPort, takenPort);
        EXPECT_TRUE(gwtest::eventually([&] { return listening(nginxPort) && listening(takenPort); }));

        // Port mode accepts the gateway's admin on a bound port.
        tagTelmiAuthRsp rsp;
        EXPECT_EQ(checkAs(rsp, "admin", "Adm1n!pass", challengeNonce(), "10.0.0.5", ZQConfigMgr::portMode, nginxPort), 0);

        // Another program takes the second port once nginx lets it go.
        int32_t port = takenPort;
        ZQBase::CNginxOper* nginx = ZQBase::CNginxOper::getInstance();
        ASSERT_NE(nginx->ModifyConfig(ZQBase::delListenPort, &port, nullptr), 0);
        ASSERT_NE(nginx->Reboot(), 0);
        ASSERT_TRUE(gwtest::eventually([&] { return !listening(takenPort); }));
        gwtest::Listener other(takenPort);
        ASSERT_TRUE(other.ok());

        auto ports = portList();
        ASSERT_EQ(ports.size(), 2u);
        for (const auto& p : ports) {
            EXPECT_EQ(httpStatus(p), p->getHttpPort() == nginxPort ? 1 : 0) << p->getHttpPort();
        }

        std::vector<int> results;
        ASSERT_EQ(ZQ_CALL(ZQ_TELMIMgrBus_UnbindPort)(results, {rets[0].port->getPortIndex()}), 0);
        EXPECT_EQ(results, std::vector<int>{0});
        EXPECT_TRUE(gwtest::eventually([&] { return !listening(nginxPort); })) << "unbinding closed the listener";
        EXPECT_EQ(portList().size(), 1u);

        ZQ_CALL(ZQ_TELMIMgrBus_Stop)();
        nginx->Quit();
        std::vector<int> pids;
        nginx->getPid(pids);
        EXPECT_TRUE(pids.empty());
    });
}

TEST(LibraryOnGatewayTest, TwoProcessesBindingAtOnceGetDifferentPorts) {
    TempHome home;
    const unsigned short first = gwtest::testPortBlock(20);
    ASSERT_NE(first, 0);
    inChild(home, [&] {
        useSettings(first);
        registerCamera(4, "CAM-A");
        registerCamera(4, "CAM-B");
    });
    const int media = gwtest::startChild(home, [] {
        gwtest::MediaStandIn standIn;
        ::pause();  // serves until the test ends it
    });
    auto binder = [&home](const char* deviceId) {
        return gwtest::startChild(home, [deviceId] {
            std::vector<tagBindPortRet> rets;
            ZQ_CALL(ZQ_TELMIMgrBus_BindPort)(rets, {deviceId});
            ASSERT_EQ(rets.size(), 1u);
            EXPECT_EQ(rets[0].resultCode, 0) << deviceId;
        });
    };
    const int a = binder("CAM-A"), b = binder("CAM-B");
    gwtest::finished(a);
    gwtest::finished(b);
    ::kill(media, SIGKILL);
    ::waitpid(media, nullptr, 0);
    inChild(home, [] {
        std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> ports;
        ZQ_DeviceMgr_GetAllTELMIPort(ports);
        ASSERT_EQ(ports.size(), 2u);
        std::set<unsigned short> distinct = {ports[0]->getHttpPort(), ports[0]->getRtspPort(),
                                             ports[1]->getHttpPort(), ports[1]->getRtspPort()};
        EXPECT_EQ(distinct.size(), 4u);
        EXPECT_TRUE(gwtest::eventually([&] {
            return listening(ports[0]->getHttpPort()) && listening(ports[1]->getHttpPort());
        })) << "both processes' ports reached the one nginx";
        ZQBase::CNginxOper::getInstance()->Quit();
    });
}
