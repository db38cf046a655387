#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "LibraryTest.h"

namespace {

using PortConcurrencyTest = LibraryTest;

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
