#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "LibraryTest.h"
#include "ZQTELMIMgrBus.h"

using namespace ZQTELMIMgrBus;

namespace {

constexpr int kDevices = 8;
constexpr int kRounds = 40;

std::string deviceIndex(int i) { return "dev" + std::to_string(i); }
std::string accessId(int i) { return "T5-" + std::to_string(i); }

using PortConcurrencyTest = LibraryTest;

// Binders race for the same devices, unbinders withdraw whatever is bound, a listing tidies up
// and the store's thread reports devices leaving; every path must end, and the store must
// hold at most one binding per device, each with its nginx and RTSP listeners.
TEST_F(PortConcurrencyTest, BindsUnbindsListingsAndDeviceRemovalsInterleave) {
    for (int i = 0; i < kDevices; ++i) {
        platform().addDevice(deviceIndex(i), 4, accessId(i));
    }
    ZQ_TELMIMgrBus_Start();
    std::vector<std::string> allIds;
    for (int i = 0; i < kDevices; ++i) {
        allIds.push_back(accessId(i));
    }

    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
            while (!go) {
            }
            for (int round = 0; round < kRounds; ++round) {
                std::vector<tagBindPortRet> rets;
                ZQ_TELMIMgrBus_BindPort(rets, allIds);
            }
        });
    }
    threads.emplace_back([&] {
        while (!go) {
        }
        for (int round = 0; round < kRounds; ++round) {
            std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> ports;
            ZQ_DeviceMgr_GetAllTELMIPort(ports);
            std::vector<std::string> indexes;
            for (const auto& port : ports) {
                indexes.push_back(port->getPortIndex());
            }
            std::vector<int> results;
            ZQ_TELMIMgrBus_UnbindPort(results, indexes);
        }
    });
    threads.emplace_back([&] {
        while (!go) {
        }
        for (int round = 0; round < kRounds; ++round) {
            std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> ports;
            tagTelmiQueryRsp rsp{};
            tagTelmiQueryReq req{};
            req.maxResults = 500;
            ZQ_TELMIMgrBus_QueryTELMIPortList(ports, rsp, req);
        }
    });
    threads.emplace_back([&] {
        while (!go) {
        }
        for (int i = kDevices / 2; i < kDevices; ++i) {
            platform().notify(ZQDeviceMgr::deviceRemoved, deviceIndex(i));  // still present: released anyway
            platform().removeDevice(deviceIndex(i));
            platform().notify(ZQDeviceMgr::deviceRemoved, deviceIndex(i));
        }
    });
    go = true;
    for (auto& thread : threads) {
        thread.join();
    }

    // A bind that passed its device check just before the device left may still have stored a
    // binding; listing removes those, as it does in the gateway.
    std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> listed;
    tagTelmiQueryRsp rsp{};
    tagTelmiQueryReq req{};
    req.maxResults = 500;
    ZQ_TELMIMgrBus_QueryTELMIPortList(listed, rsp, req);

    std::lock_guard<std::recursive_mutex> lock(platform().mutex);
    std::set<std::string> boundDevices;
    for (const auto& port : platform().ports) {
        EXPECT_TRUE(platform().findDevice(port->deviceIndex)) << port->deviceIndex;
        EXPECT_TRUE(boundDevices.insert(port->deviceIndex).second) << "two bindings for " << port->deviceIndex;
        EXPECT_EQ(platform().nginxPorts.count(port->httpPort), 1u) << port->deviceIndex;
        EXPECT_EQ(platform().mediaListening[port->deviceIndex], port->rtspPort) << port->deviceIndex;
    }
    EXPECT_EQ(static_cast<int>(platform().ports.size()), rsp.totalMatches);
    EXPECT_EQ(platform().buffersAllocated, platform().buffersFreed);
    EXPECT_TRUE(platform().bufferErrors.empty());
    ZQ_TELMIMgrBus_Stop();
}

}  // namespace
