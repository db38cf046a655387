#include <atomic>
#include <functional>
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

    std::atomic<bool> go{false};
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
        tagTelmiQueryRsp rsp{};
        ZQ_TELMIMgrBus_QueryTELMIPortList(ports, rsp, queryRequest(0, 500));
    });
    int leaving = kDevices / 2;  // the second half of the devices leave, one a round
    spawn([&] {
        const std::string index = deviceIndex(leaving++);
        platform().notify(ZQDeviceMgr::deviceRemoved, index);  // still present: released anyway
        platform().removeDevice(index);
        platform().notify(ZQDeviceMgr::deviceRemoved, index);
    }, kDevices / 2);
    go = true;
    for (auto& thread : threads) {
        thread.join();
    }

    // A bind that passed its device check just before the device left may still have stored a
    // binding; listing removes those, as it does in the gateway.
    std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> listed;
    tagTelmiQueryRsp rsp{};
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

}  // namespace
