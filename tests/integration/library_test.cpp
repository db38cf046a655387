// The real libZQTELMIMgrBus.so, loaded with dlopen as a gateway host loads it, on the
// reference platform in a temporary gateway home, with the real media daemon and nginx: no test
// double anywhere.
#include <dlfcn.h>

#include "GatewayRun.h"
#include "ZQBase.h"
#include "ZQTELMIMgrBus.h"

using namespace gwtest;
using namespace ZQTELMIMgrBus;

namespace {

void* library() {
    static void* handle = dlopen(ZQ_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
    EXPECT_NE(handle, nullptr) << dlerror();
    return handle;
}

#define ZQ_SYMBOL(handle, name) reinterpret_cast<decltype(&name)>(dlsym(handle, #name))
#define ZQ_CALL(name) (*ZQ_SYMBOL(library(), name))

std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> portList() {
    std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> ports;
    tagTelmiQueryRsp rsp {};
    tagTelmiQueryReq req {};
    req.maxResults = 100;
    EXPECT_EQ(ZQ_CALL(ZQ_TELMIMgrBus_QueryTELMIPortList)(ports, rsp, req), 0);
    return ports;
}

}  // namespace

// Two processes bind at once; what they bind, nginx and the media daemon serve.
TEST(LibraryOnGatewayTest, BindingsFromTwoProcessesDriveNginxAndTheMediaRelay) {
    const GatewayRun gateway;  // a home with test ports, never started: the library drives nginx and the relay
    const TempHome& home = gateway.home();
    std::string cameraAddress;
    const auto camera = simulatedCamera(gateway.freePort(0), cameraAddress);
    inChild(home, [&] {
        registerDevice(4, "CAM-1", cameraAddress);
        registerDevice(4, "CAM-2", cameraAddress);
    });
    // The daemon detaches once its command socket listens; the home's end stops it.
    runShell(std::string(ZQ_MEDIAD_PATH) + " --home " + home.path());
    auto binder = [&home](const char* deviceId) {
        return startChild(home, [deviceId] {
            std::vector<tagBindPortRet> rets;
            ASSERT_EQ(ZQ_CALL(ZQ_TELMIMgrBus_BindPort)(rets, {deviceId}), 0);
            ASSERT_EQ(rets.size(), 1u);
            EXPECT_EQ(rets[0].resultCode, 0) << deviceId;
        });
    };
    const int a = binder("CAM-1"), b = binder("CAM-2");
    if (!finished(a) || !finished(b)) {
        return;
    }
    inChild(home, [] {
        auto ports = portList();
        ASSERT_EQ(ports.size(), 2u);
        const unsigned short nginxPort = ports[0]->getHttpPort(), otherPort = ports[1]->getHttpPort();
        const unsigned short rtspPort = ports[0]->getRtspPort();
        const std::string unbound = ports[0]->getPortIndex();
        EXPECT_EQ((std::set<unsigned short> {nginxPort, rtspPort, otherPort, ports[1]->getRtspPort()}).size(), 4u);
        EXPECT_TRUE(eventually([&] { return listening(nginxPort) && listening(otherPort); }))
            << "both processes' ports reached the one nginx";
        EXPECT_EQ(ffprobe(rtspPort), "pcm_mulaw,8000,25\n") << "an RTSP session through the relay";

        std::vector<int> results;
        ASSERT_EQ(ZQ_CALL(ZQ_TELMIMgrBus_UnbindPort)(results, {unbound}), 0);
        EXPECT_EQ(results, std::vector<int> {0});
        EXPECT_TRUE(eventually([&] { return !listening(nginxPort) && !listening(rtspPort); }))
            << "unbinding closed both listeners";
        EXPECT_EQ(portList().size(), 1u);

        ZQBase::CNginxOper* nginx = ZQBase::CNginxOper::getInstance();
        nginx->Quit();
        std::vector<int> pids;
        nginx->getPid(pids);
        EXPECT_TRUE(pids.empty());
    });
}

// A host closes the library while its threads are still calling in, then opens it again: no call
// may reach freed state or unmapped code (AddressSanitizer watches in the sanitizer build).
TEST(LibraryOnGatewayTest, CallsWhileTheHostClosesTheLibraryFindItWhole) {
    TempHome home;
    inChild(home, [] {
        void* handle = dlopen(ZQ_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(handle, nullptr) << dlerror();
        auto start = ZQ_SYMBOL(handle, ZQ_TELMIMgrBus_Start);
        auto stop = ZQ_SYMBOL(handle, ZQ_TELMIMgrBus_Stop);
        // An empty unbinding batch still takes the manager's lock: the part a freed manager loses.
        auto unbind = ZQ_SYMBOL(handle, ZQ_TELMIMgrBus_UnbindPort);
        ASSERT_TRUE(start && stop && unbind);
        EXPECT_EQ(start(), 1);

        std::atomic<bool> running {true};
        std::atomic<int> calls {0};
        std::vector<std::thread> callers;
        for (int i = 0; i < 3; ++i) {
            callers.emplace_back([&] {
                while (running) {
                    std::vector<int> results;
                    EXPECT_EQ(unbind(results, {}), 0);
                    ++calls;
                }
            });
        }
        auto awaitCalls = [&calls](int more) {
            for (const int from = calls; calls < from + more;) {
                std::this_thread::yield();
            }
        };
        awaitCalls(100);
        EXPECT_EQ(stop(), 1);
        awaitCalls(100);  // after Stop
        EXPECT_EQ(dlclose(handle), 0);
        awaitCalls(100);  // after the host let it go
        void* again = dlopen(ZQ_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_EQ(again, handle) << "never unloaded, so reopening finds the same library";
        running = false;
        for (auto& caller : callers) {
            caller.join();
        }
        dlclose(again);
    });
}
