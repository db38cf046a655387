// What the library may rely on from its platform, checked alike on the fake and on the reference
// gateway platform (PlatformSide.h says where the two are prepared differently).
#include <gtest/gtest.h>
#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

#include "PlatformSide.h"
#include "StoreRecordText.h"
#include "ZQBase.h"
#include "ZQConfigMgr.h"
#include "ZQDeviceMgr.h"

using namespace contract;

namespace {

TEST(PlatformContract, UsersOnePerDeviceUniqueByNameInAddOrderAndTheirDevicesBoundState) {
    onFreshPlatform([] {
        const std::string tarn = registerDevice(2, "T1"), tarn5 = registerDevice(4, "T5");
        std::shared_ptr<ZQDeviceMgr::CTELMIUser> alice, bob, refused;
        ASSERT_EQ(ZQ_DeviceMgr_AddTELMIUser(alice, userRecord("alice", tarn)), 0);
        EXPECT_NE(ZQ_DeviceMgr_AddTELMIUser(refused, userRecord("bob", tarn)), 0) << "one account per device";
        EXPECT_NE(ZQ_DeviceMgr_AddTELMIUser(refused, userRecord("alice", tarn5)), 0) << "names are unique";
        EXPECT_NE(ZQ_DeviceMgr_AddTELMIUser(refused, userRecord("carol", "no-such-device")), 0);
        ASSERT_EQ(ZQ_DeviceMgr_AddTELMIUser(bob, userRecord("bob", tarn5)), 0);
        EXPECT_EQ(std::tuple(alice->getUserName(), alice->getDigestPassword(), alice->getDeviceIndex()),
                  std::tuple("alice", md5Of("alice"), tarn));
        EXPECT_LT(alice->getAddTime(), bob->getAddTime()) << "add times sort in the order of adding";
        EXPECT_EQ(alice->getUserIndex().size(), 36u);
        EXPECT_EQ(ZQ_DeviceMgr_GetDevice(tarn)->getTELMIBoundStatus(), 1);
        EXPECT_EQ(ZQ_DeviceMgr_GetDevice(tarn)->getTELMIPortBoundStatus(), 0);

        ASSERT_EQ(ZQ_DeviceMgr_ModifyTELMIUser(bob->getUserIndex(), userRecord("bobby", tarn5)), 0);
        EXPECT_EQ(ZQ_DeviceMgr_GetTELMIUser(bob->getUserIndex())->getUserName(), "bobby");
        std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIUser>> users;
        ASSERT_EQ(ZQ_DeviceMgr_GetAllTELMIUser(users), 0);
        ASSERT_EQ(users.size(), 2u);
        EXPECT_EQ(users[0]->getUserName() + " " + users[1]->getUserName(), "alice bobby");

        ASSERT_EQ(ZQ_DeviceMgr_DelTELMIUser(alice->getUserIndex()), 0);
        EXPECT_NE(ZQ_DeviceMgr_DelTELMIUser(alice->getUserIndex()), 0);
        EXPECT_EQ(ZQ_DeviceMgr_GetTELMIUser(alice->getUserIndex()), nullptr);
        EXPECT_EQ(ZQ_DeviceMgr_GetDevice(tarn)->getTELMIBoundStatus(), 0);
        EXPECT_EQ(ZQ_DeviceMgr_GetDevice("no-such-device"), nullptr);
    });
}

TEST(PlatformContract, BindingsOnePerDeviceAndPortFoundByIndexAndReleased) {
    onFreshPlatform([] {
        const std::string first = registerDevice(4, "P1"), second = registerDevice(4, "P2");
        std::shared_ptr<ZQDeviceMgr::CTELMIPort> port, refused, fetched;
        ASSERT_EQ(ZQ_DeviceMgr_BindTELMIPort(port, portRecord(first, 38101, 38102)), 0);
        EXPECT_NE(ZQ_DeviceMgr_BindTELMIPort(refused, portRecord(first, 38103, 38104)), 0) << "one per device";
        EXPECT_NE(ZQ_DeviceMgr_BindTELMIPort(refused, portRecord(second, 38101, 0)), 0) << "one per HTTP port";
        EXPECT_EQ(std::tuple(port->getHttpPort(), port->getRtspPort(), port->getDeviceIndex()),
                  std::tuple(38101, 38102, first));
        EXPECT_EQ(ZQ_DeviceMgr_GetDevice(first)->getTELMIPortBoundStatus(), 1);
        EXPECT_EQ(ZQ_DeviceMgr_GetDevice(first)->getTELMIBoundStatus(), 0);

        ASSERT_EQ(ZQ_DeviceMgr_GetTELMIPort(fetched, port->getPortIndex()), 0);
        EXPECT_EQ(fetched->getHttpPort(), 38101);
        std::shared_ptr<ZQDeviceMgr::CTELMIPort> missing;
        EXPECT_NE(ZQ_DeviceMgr_GetTELMIPort(missing, "no-such-binding"), 0);
        EXPECT_EQ(missing, nullptr);

        ASSERT_EQ(ZQ_DeviceMgr_UnbindTELMIPort(port->getPortIndex()), 0);
        EXPECT_NE(ZQ_DeviceMgr_UnbindTELMIPort(port->getPortIndex()), 0);
        std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> ports;
        ASSERT_EQ(ZQ_DeviceMgr_GetAllTELMIPort(ports), 0);
        EXPECT_TRUE(ports.empty());
        EXPECT_EQ(ZQ_DeviceMgr_GetDevice(first)->getTELMIPortBoundStatus(), 0);
    });
}

TEST(PlatformContract, LockCountsArePerKeyLockAtTheSeventhFailureAndAreForgottenOnSuccess) {
    onFreshPlatform([] {
        std::shared_ptr<ZQDeviceMgr::CTELMIUser> user;
        ASSERT_EQ(ZQ_DeviceMgr_AddTELMIUser(user, userRecord("alice", registerDevice(2, "T1"))), 0);
        int countSlot = 0, timeSlot = 0;
        EXPECT_EQ(user->getLockNum(countSlot, "10.0.0.1", 0), 0);
        for (int i = 1; i <= 7; ++i) {
            EXPECT_EQ(user->getLockNum(countSlot, "10.0.0.1", 1), i);
            EXPECT_EQ(user->getUnlockTime(timeSlot, "10.0.0.1") > 0, i == 7) << "locked at the seventh failure only";
        }
        EXPECT_EQ(user->getLockNum(countSlot, "10.0.0.1", 0), 7) << "reading does not count";
        EXPECT_EQ(user->getLockNum(countSlot, "10.0.0.2", 0), 0) << "keys are counted apart";
        EXPECT_EQ(user->getLockNum(countSlot, "10.0.0.2", 1), 1);
        user->destroyLock(timeSlot, "10.0.0.2");
        EXPECT_EQ(user->getLockNum(countSlot, "10.0.0.2", 0), 0);

        std::shared_ptr<ZQDeviceMgr::CTELMIPort> port;
        ASSERT_EQ(ZQ_DeviceMgr_BindTELMIPort(port, portRecord(registerDevice(4, "P1"), 38101, 0)), 0);
        EXPECT_EQ(port->getLockNum(countSlot, "10.0.0.1", 1), 1) << "each record counts for itself";
    });
}

TEST(PlatformContract, RemovalIsNotifiedWithTheIndexAndContextUntilDetached) {
    static std::mutex mutex;
    static std::condition_variable changed;
    static std::vector<std::string> removed;
    static int context;
    onFreshPlatform([] {
        auto callback = [](ZQDeviceMgr::tagNotifyType type, void* index, const void* given) {
            EXPECT_EQ(type, ZQDeviceMgr::deviceRemoved);
            EXPECT_EQ(given, &context);
            std::lock_guard<std::mutex> lock(mutex);
            removed.push_back(static_cast<const char*>(index));
            changed.notify_all();
        };
        const std::string first = registerDevice(2, "T1"), second = registerDevice(2, "T2");
        ASSERT_EQ(ZQ_DeviceMgr_NotifyAttach(callback, &context), 0);
        removeDevice(first);
        {
            std::unique_lock<std::mutex> lock(mutex);
            changed.wait(lock, [] { return !removed.empty(); });
            EXPECT_EQ(removed, std::vector<std::string> {first});
        }
        EXPECT_EQ(ZQ_DeviceMgr_GetDevice(first), nullptr);
        ASSERT_EQ(ZQ_DeviceMgr_NotifyDetach(callback), 0);
        removeDevice(second);
        EXPECT_EQ(ZQ_DeviceMgr_GetDevice(second), nullptr);
        std::lock_guard<std::mutex> lock(mutex);
        EXPECT_EQ(removed.size(), 1u) << "detached: not called again";
    });
}

TEST(PlatformContract, ConfigurationKeepsTheSwitchTheRealmTheAdminsHA1AndTheMediaTimeLimit) {
    onFreshPlatform([] {
        auto telmi = ZQ_ConfigMgr_GetTELMICfg();
        ASSERT_NE(telmi, nullptr);
        EXPECT_EQ(telmi->getTELMIParam(), 0);
        EXPECT_EQ(telmi->setTELMIParam(7), 0) << "any value is kept as given";
        EXPECT_EQ(ZQ_ConfigMgr_GetTELMICfg()->getTELMIParam(), 7);

        auto users = ZQ_ConfigMgr_GetUserCfg();
        ASSERT_NE(users, nullptr);
        EXPECT_EQ(users->getRealm(), "TELMI");
        std::string ha1 = "untouched";
        EXPECT_NE(users->getDigestHA1(ha1, "admin"), 0) << "no gateway admin until one is set";
        setGatewayAdminPassword("Adm1n!pass");
        ASSERT_EQ(ZQ_ConfigMgr_GetUserCfg()->getDigestHA1(ha1, "admin"), 0);
        EXPECT_EQ(ha1, md5Of("admin:TELMI:Adm1n!pass"));

        auto privateCfg = ZQ_ConfigMgr_GetPrivateCfg();
        ASSERT_NE(privateCfg, nullptr);
        ZQConfigMgr::tagInternalCommunicationInfo info {};
        privateCfg->getInternalCommParams(info);
        EXPECT_EQ(info.timeout, 3000);
    });
}

TEST(PlatformContract, DigestVerifiesAnswersToFreshNoncesOnce) {
    onFreshPlatform([] {
        char nonce[64] = {}, other[64] = {};
        ASSERT_EQ(CreateNonce(nonce, sizeof(nonce)), 0);
        ASSERT_EQ(CreateNonce(other, sizeof(other)), 0);
        EXPECT_STRNE(nonce, other) << "every nonce is fresh";
        char tooSmall[4] = {'x', 'x', 'x', 'x'};
        EXPECT_EQ(CreateNonce(tooSmall, sizeof(tooSmall)), -1) << "a nonce is never cut";
        EXPECT_EQ(tooSmall[0], '\0');

        const std::string ha1 = md5Of("alice:TELMI:Gw#Pass2024");
        const std::string right = digestAnswer("alice", ha1, nonce);
        EXPECT_EQ(ZQ_BASE_CheckDigest("PUT", right.c_str(), ha1.c_str()), -1) << "the method is part of the answer";
        const std::string wrong = digestAnswer("alice", md5Of("alice:TELMI:wrong"), nonce);
        EXPECT_EQ(ZQ_BASE_CheckDigest("GET", wrong.c_str(), ha1.c_str()), -1);
        EXPECT_EQ(ZQ_BASE_CheckDigest("GET", "Digest username=\"alice\"", ha1.c_str()), -1);
        EXPECT_EQ(ZQ_BASE_CheckDigest("GET", right.c_str(), ha1.c_str()), 0);
        EXPECT_EQ(ZQ_BASE_CheckDigest("GET", right.c_str(), ha1.c_str()), -2) << "a replayed answer is stale";
    });
}

TEST(PlatformContract, PortProbesSeeListenersAndTheirHoldersAndPickedPortsAreFree) {
    onFreshPlatform([] {
        const unsigned short port = unusedPort();
        EXPECT_EQ(CheckPort(port, 1), 0);
        EXPECT_EQ(CheckPortOccupy({}, "0.0.0.0", port, 1), 0) << "nobody holds it";
        {
            auto listener = listenOn(port);
            EXPECT_EQ(CheckPort(port, 1), -1);
            EXPECT_EQ(CheckPortOccupy({getpid()}, "0.0.0.0", port, 1), 0) << "held by a process of the list";
            EXPECT_NE(CheckPortOccupy({}, "0.0.0.0", port, 1), 0);
            EXPECT_NE(CheckPortOccupy({getpid() + 1}, "0.0.0.0", port, 1), 0);
        }
        EXPECT_EQ(CheckPort(port, 1), 0);

        unsigned short http = 0, rtsp = 0;
        ASSERT_EQ(getHttpPort(&http), 1);
        ASSERT_EQ(getRtspPort(&rtsp), 1);
        EXPECT_NE(http, rtsp);
        EXPECT_EQ(CheckPort(http, 1), 0);
    });
}

TEST(PlatformContract, NginxTakesAndDropsListenPortsAndAppendsItsProcessIds) {
    onFreshPlatform([] {
        auto* nginx = ZQBase::CNginxOper::getInstance();
        ASSERT_NE(nginx, nullptr);
        EXPECT_EQ(nginx, ZQBase::CNginxOper::getInstance());
        int port = 38101;
        EXPECT_EQ(nginx->ModifyConfig(ZQBase::addListenPort, &port, nullptr), 1);
        EXPECT_EQ(nginx->ModifyConfig(ZQBase::delListenPort, &port, nullptr), 1);
        int none = 0;
        EXPECT_EQ(nginx->ModifyConfig(ZQBase::addListenPort, &none, nullptr), 0) << "not a port";
        EXPECT_EQ(nginx->ModifyConfig(ZQBase::addListenPort, nullptr, nullptr), 0);
        std::vector<int> pids = {42};
        EXPECT_EQ(nginx->getPid(pids), 1);
        EXPECT_EQ(pids, std::vector<int> {42}) << "appended to; no nginx runs";
        EXPECT_EQ(nginx->Quit(), 1) << "nothing to quit is no failure";
    });
}

}  // namespace
