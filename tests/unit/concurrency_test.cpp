#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "LibraryTest.h"

namespace {

constexpr int kDevices = 8;
constexpr int kRounds = 40;

std::string deviceIndex(int i) { return "dev" + std::to_string(i); }

using PortConcurrencyTest = LibraryTest;

// Binders race for the same devices, unbinders withdraw whatever is bound, a listing tidies up
// and the store's thread reports devices leaving; every path must end, and the store must
// hold at most one binding per device, each with its nginx and RTSP listeners.
TEST_F(PortConcurrencyTest, BindsUnbindsListingsAndDeviceRemovalsInterleave) {
    ZQ_TELMIMgrBus_Start();
    std::vector<std::string> allIds;
    for (int i = 0; i < kDevices; ++i) {
        allIds.push_back("T5-" + std::to_string(i));
        platform().addDevice(deviceIndex(i), 4, allIds.back());
    }

    std::atomic<bool> go {false};
    std::vector<std::thread> threads;
    auto spawn = [&](std::function<void()> work, int rounds = kRounds) {
        threads.emplace_back([&go, work, rounds] {
            while (!go) {
            }
            for (int i = 0; i < rounds; ++i) {
                work();
            }
        });
    };
    for (int t = 0; t < 3; ++t) {
        spawn([&] {
            std::vector<tagBindPortRet> rets;
            ZQ_TELMIMgrBus_BindPort(rets, allIds);
        });
    }
    spawn([] {
        std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> ports;
        ZQ_DeviceMgr_GetAllTELMIPort(ports);
        std::vector<int> results;
        ZQ_TELMIMgrBus_UnbindPort(results, eachOf(ports, &ZQDeviceMgr::CTELMIPort::getPortIndex));
    });
    spawn([] {
        std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> ports;
        tagTelmiQueryRsp rsp {};
        ZQ_TELMIMgrBus_QueryTELMIPortList(ports, rsp, queryRequest(0, 500));
    });
    int leaving = kDevices / 2;  // the second half of the devices leave, one a round
    spawn(
        [&] {
            const std::string index = deviceIndex(leaving++);
            platform().notify(ZQDeviceMgr::deviceRemoved, index);  // still present: released anyway
            platform().removeDevice(index);
            platform().notify(ZQDeviceMgr::deviceRemoved, index);
        },
        kDevices / 2);
    go = true;
    for (auto& thread : threads) {
        thread.join();
    }

    // A bind that passed its device check just before the device left may still have stored a
    // binding; listing removes those, as it does in the gateway.
    std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> listed;
    tagTelmiQueryRsp rsp {};
    ZQ_TELMIMgrBus_QueryTELMIPortList(listed, rsp, queryRequest(0, 500));

    auto lock = fake::lockPlatform();
    std::set<std::string> boundDevices;
    for (const auto& port : platform().ports) {
        EXPECT_TRUE(platform().findDevice(port->deviceIndex)) << port->deviceIndex;
        EXPECT_TRUE(boundDevices.insert(port->deviceIndex).second) << "two bindings for " << port->deviceIndex;
        EXPECT_EQ(platform().nginxPorts.count(port->httpPort), 1u) << port->deviceIndex;
        EXPECT_EQ(platform().mediaListening[port->deviceIndex], port->rtspPort) << port->deviceIndex;
    }
    EXPECT_EQ(static_cast<int>(platform().ports.size()), rsp.totalMatches);
    EXPECT_EQ(platform().buffersAllocated, platform().buffersFreed);
    EXPECT_EQ(platform().badFrees, 0);
    ZQ_TELMIMgrBus_Stop();
}

// While a binding batch is inside its steps, an unbinding batch waits for it, and bindRetry,
// which takes no lock, runs to its end. The pause gives a batch that failed to wait every
// chance to show itself; the order checked does not depend on it.
TEST_F(PortConcurrencyTest, ConcurrentBatchesNeverInterleaveWhileRetryRunsOutsideTheirLock) {
    platform().addDevice("dev-a", 4, "A");
    platform().addDevice("dev-b", 4, "B");
    std::vector<tagBindPortRet> bound;
    ZQ_TELMIMgrBus_BindPort(bound, {"B"});
    ASSERT_TRUE(bound[0].port);
    const std::string otherPort = bound[0].port->getPortIndex();
    const std::string otherHttp = std::to_string(bound[0].port->getHttpPort());
    platform().journal.clear();

    std::future<void> unbinding;
    std::atomic<bool> paused {false}, retried {false};
    platform().beforeMedia = [&] {
        if (paused.exchange(true)) {  // only the binding batch's own media step pauses
            return;
        }
        unbinding = std::async(std::launch::async, [&] {
            std::vector<int> results;
            ZQ_TELMIMgrBus_UnbindPort(results, {otherPort});
        });
        std::thread([&] {
            tagBindPortRet ret;
            ZQ_TELMIMgrBus_BindRetry(ret, otherPort);
            retried = true;
        }).join();
        unbinding.wait_for(std::chrono::milliseconds(300));
    };
    std::vector<tagBindPortRet> rets;
    ZQ_TELMIMgrBus_BindPort(rets, {"A"});
    unbinding.wait();
    EXPECT_TRUE(retried);

    const auto& journal = platform().journal;
    auto at = [&journal](const std::string& entry) {
        return std::find(journal.begin(), journal.end(), entry) - journal.begin();
    };
    const auto bindEnd = at("nginx.ModifyConfig 9 " + std::to_string(rets[0].port->getHttpPort()));
    ASSERT_LT(bindEnd, static_cast<long>(journal.size()));
    EXPECT_GT(at("nginx.ModifyConfig 8 " + otherHttp), bindEnd) << "the unbinding batch ran inside the binding one";
    EXPECT_GT(at("store.UnbindTELMIPort " + otherPort), bindEnd);
}

}  // namespace
