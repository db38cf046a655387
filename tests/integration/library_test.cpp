// The real libZQTELMIMgrBus.so, loaded with dlopen as a gateway host loads it, on the
// reference platform in a temporary gateway home, with the real media daemon and nginx: no test
// double anywhere.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <regex>
#include <set>

#include "ChildProgram.h"
#include "GatewayTestHome.h"
#include "ZQBase.h"
#include "ZQGatewayDevices.h"
#include "ZQGatewayHome.h"
#include "ZQTELMIMgrBus.h"

using gwtest::inChild;
using gwtest::listening;
using gwtest::registerDevice;
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

void useSettings(unsigned short firstPort) {
    gwtest::changeSettings([firstPort](ZQGateway::tagGatewaySettings& s) {
        s.nonceLifetimeSec = 2;
        s.httpPortFirst = firstPort;
        s.httpPortLast = static_cast<uint16_t>(firstPort + 9);
        s.rtspPortFirst = static_cast<uint16_t>(firstPort + 10);
        s.rtspPortLast = static_cast<uint16_t>(firstPort + 19);
        s.logFile = "";  // stderr, next to the test's own output
        s.logLevel = 4;
    });
}

int check(tagTelmiAuthRsp& rsp, const std::string& header, const char* lockKey) {
    rsp = tagTelmiAuthRsp {};
    tagTELMIAuthReq req {};
    std::strncpy(req.lockKey, lockKey, sizeof(req.lockKey) - 1);
    std::strncpy(req.authHeader, header.c_str(), sizeof(req.authHeader) - 1);
    return ZQ_CALL(ZQ_TELMIMgrBus_CheckDigest)(rsp, "GET", req, ZQConfigMgr::userMode);
}

// Asks as a client that has no credentials yet and takes the nonce of the challenge.
std::string challengeNonce() {
    tagTelmiAuthRsp rsp;
    EXPECT_EQ(check(rsp, "Digest realm=\"TELMI\"", "probe"), 1);
    std::cmatch nonce;
    EXPECT_TRUE(std::regex_search(rsp.challenge, nonce, std::regex("nonce=\"([0-9a-f]+)\""))) << rsp.challenge;
    return nonce[1];
}

int checkAs(tagTelmiAuthRsp& rsp, const std::string& user, const std::string& password, const std::string& nonce,
            const char* lockKey) {
    return check(rsp, gwtest::pythonDigestHeader(user, "TELMI", password, "GET", kUri, nonce, true), lockKey);
}

std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> portList() {
    std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> ports;
    tagTelmiQueryRsp rsp {};
    tagTelmiQueryReq req {};
    req.maxResults = 100;
    EXPECT_EQ(ZQ_CALL(ZQ_TELMIMgrBus_QueryTELMIPortList)(ports, rsp, req), 0);
    return ports;
}

}  // namespace

TEST(LibraryOnGatewayTest, UsersDigestAndLockOutSurviveRestarts) {
    TempHome home;
    const unsigned short first = gwtest::testPortBlock(20);
    inChild(home, [&] {
        useSettings(first);
        registerDevice(2, "T100");
        std::vector<ZQDeviceMgr::tagAddUserRet> results;
        std::vector<tagTELMIUserInput> users(1);  // zeroed
        std::strcpy(users[0].userName, "alice");
        std::strcpy(users[0].password, "Gw#Pass2024");
        std::strcpy(users[0].deviceID, "T100");
        ASSERT_EQ(ZQ_CALL(ZQ_TELMIMgrBus_AddUser)(results, users), 0);
        ASSERT_EQ(results.size(), 1u);
        EXPECT_EQ(results[0].result, 0);
    });
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
        const auto device =
            ZQ_DeviceMgr_GetDevice(std::string(rsp.deviceIndex, strnlen(rsp.deviceIndex, sizeof(rsp.deviceIndex))));
        ASSERT_NE(device, nullptr);
        EXPECT_EQ(device->getTarnDeviceID(), "T100");

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

// Two processes bind at once; what they bind, nginx and the media daemon serve.
TEST(LibraryOnGatewayTest, BindingsFromTwoProcessesDriveNginxAndTheMediaRelay) {
    TempHome home;
    const unsigned short first = gwtest::testPortBlock(22);
    std::string cameraAddress;
    const auto camera = gwtest::simulatedCamera(first + 20, cameraAddress);
    inChild(home, [&] {
        useSettings(first);
        registerDevice(4, "CAM-1", cameraAddress);
        registerDevice(4, "CAM-2", cameraAddress);
    });
    // The daemon detaches once its command socket listens; the home's end stops it.
    gwtest::runShell(std::string(ZQ_MEDIAD_PATH) + " --home " + home.path());
    auto binder = [&home](const char* deviceId) {
        return gwtest::startChild(home, [deviceId] {
            std::vector<tagBindPortRet> rets;
            ASSERT_EQ(ZQ_CALL(ZQ_TELMIMgrBus_BindPort)(rets, {deviceId}), 0);
            ASSERT_EQ(rets.size(), 1u);
            EXPECT_EQ(rets[0].resultCode, 0) << deviceId;
        });
    };
    const int a = binder("CAM-1"), b = binder("CAM-2");
    if (!gwtest::finished(a) || !gwtest::finished(b)) {
        return;
    }
    inChild(home, [] {
        auto ports = portList();
        ASSERT_EQ(ports.size(), 2u);
        const unsigned short nginxPort = ports[0]->getHttpPort(), takenPort = ports[1]->getHttpPort();
        const unsigned short rtspPort = ports[0]->getRtspPort();
        const std::string unbound = ports[0]->getPortIndex();
        EXPECT_EQ((std::set<unsigned short> {nginxPort, rtspPort, takenPort, ports[1]->getRtspPort()}).size(), 4u);
        EXPECT_TRUE(gwtest::eventually([&] { return listening(nginxPort) && listening(takenPort); }))
            << "both processes' ports reached the one nginx";
        EXPECT_EQ(gwtest::ffprobe(rtspPort), "pcm_mulaw,8000,25\n") << "an RTSP session through the relay";

        // Another program takes the second port once nginx lets it go.
        int32_t port = takenPort;
        ZQBase::CNginxOper* nginx = ZQBase::CNginxOper::getInstance();
        ASSERT_NE(nginx->ModifyConfig(ZQBase::delListenPort, &port, nullptr), 0);
        ASSERT_NE(nginx->Reboot(), 0);
        ASSERT_TRUE(gwtest::eventually([&] { return !listening(takenPort); }));
        gwtest::Listener other(takenPort);
        ASSERT_TRUE(other.ok());
        ports = portList();
        ASSERT_EQ(ports.size(), 2u);
        for (const auto& p : ports) {
            const auto& status = dynamic_cast<ZQGateway::CGatewayPort&>(*p);
            EXPECT_EQ(status.getHttpPortStatus(), p->getHttpPort() == nginxPort ? 1 : 0) << p->getHttpPort();
            EXPECT_EQ(status.getRtspPortStatus(), 1) << p->getRtspPort();
        }

        std::vector<int> results;
        ASSERT_EQ(ZQ_CALL(ZQ_TELMIMgrBus_UnbindPort)(results, {unbound}), 0);
        EXPECT_EQ(results, std::vector<int> {0});
        EXPECT_TRUE(gwtest::eventually([&] { return !listening(nginxPort) && !listening(rtspPort); }))
            << "unbinding closed both listeners";
        EXPECT_EQ(portList().size(), 1u);

        nginx->Quit();
        std::vector<int> pids;
        nginx->getPid(pids);
        EXPECT_TRUE(pids.empty());
    });
}
