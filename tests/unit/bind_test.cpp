#include <string>
#include <vector>

#include "LibraryTest.h"
#include "ZQTELMIMgrBus.h"

using namespace ZQTELMIMgrBus;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;

namespace {

constexpr uint8_t kTarn5 = 4;

class BindTest : public LibraryTest {
protected:
    // A Tarn5 device, so port mode asks the store about its port binding.
    void addDevice(const std::string& index, const std::string& accessId, uint8_t category = 1) {
        platform().addDevice(index, kTarn5, accessId, "", category);
    }

    std::vector<int> codes(const std::vector<tagBindPortRet>& rets) {
        std::vector<int> result;
        for (const auto& ret : rets) {
            result.push_back(ret.resultCode);
        }
        return result;
    }

    std::vector<int> unbind(const std::vector<std::string>& indexes) {
        std::vector<int> results;
        EXPECT_EQ(ZQ_TELMIMgrBus_UnbindPort(results, indexes), 0);
        return results;
    }

    std::string logText(int level) {
        auto lines = platform().logsAt(level);
        return lines.empty() ? "" : lines.back().text;
    }
};

TEST_F(BindTest, BindGoesStoreMediaNginxPerDeviceAndRestartsNginxOnce) {
    addDevice("dev1", "T5-1");
    addDevice("dev2", "T5-2");
    std::vector<tagBindPortRet> rets(1);
    rets[0].resultCode = 42;

    EXPECT_EQ(ZQ_TELMIMgrBus_BindPort(rets, {"T5-1", "T5-2"}), 0);
    EXPECT_THAT(codes(rets), ElementsAre(42, 0, 0));
    ASSERT_TRUE(rets[1].port && rets[2].port);
    EXPECT_EQ(rets[1].port->getDeviceIndex(), "dev1");
    EXPECT_EQ(platform().ports.size(), 2u);
    EXPECT_THAT(platform().journal,
                ElementsAre("bus.QueryDeviceList", "base.getHttpPort", "base.getRtspPort",
                            "store.BindTELMIPort dev=dev1 http=20000 rtsp=30000 spare=0", "media PutMediaPort",
                            "nginx.ModifyConfig 9 20000", "bus.QueryDeviceList", "base.getHttpPort", "base.getRtspPort",
                            "store.BindTELMIPort dev=dev2 http=20001 rtsp=30001 spare=0", "media PutMediaPort",
                            "nginx.ModifyConfig 9 20001", "nginx.Reboot"));
    EXPECT_EQ(platform().mediaCommands[0].text,
              "{\"method\":\"PutMediaPort\",\"moduleType\":10,\"params\":{\"devices\":[{\"devIndex\":\"dev1\","
              "\"rtspPort\":30000,\"rtspPortBind\":true}]}}\n");
    EXPECT_TRUE(platform().logged(3, "[%s(%d)] bindPort start."));
    EXPECT_TRUE(platform().logged(3, "[%s(%d)] bindPort end."));

    platform().journal.clear();
    EXPECT_EQ(ZQ_TELMIMgrBus_BindPort(rets, {}), 0);
    EXPECT_EQ(rets.size(), 3u);
    EXPECT_THAT(platform().journal, IsEmpty()) << "nothing bound, nothing restarted";
}

TEST_F(BindTest, EachFailedBindStepUndoesOnlyTheStoreRecord) {
    const std::string longest(31, 'L');
    for (const std::string id : {"T5-1", "T5-2", "T5-3", "T5-4", "T5-5"}) {
        addDevice("dev" + id.substr(3), id);
    }
    platform().addPort("dev5", 1, 2);
    platform().inject("getHttpPort", 0);
    std::vector<tagBindPortRet> rets;
    EXPECT_EQ(ZQ_TELMIMgrBus_BindPort(rets, {"", longest + "L", longest, "T5-5", "T5-1"}), 0);
    EXPECT_THAT(codes(rets), ElementsAre(1, 1, 7, 1026, 273)) << "31 characters pass the length check";
    EXPECT_THAT(platform().journalWith("base.get"), ElementsAre("base.getHttpPort")) << "no RTSP port asked";
    EXPECT_THAT(logText(5), ::testing::StartsWith("[bindPort("));
    EXPECT_THAT(logText(5), EndsWith(")] [devId=T5-1]get free port failed."));

    platform().inject("ZQ_DeviceMgr_BindTELMIPort", fake::kStoreRefused);
    platform().mediaReplies.push_back({3, "", "media down"});  // for T5-2
    platform().inject("ModifyConfig", 0);                       // for T5-3
    platform().journal.clear();
    EXPECT_EQ(ZQ_TELMIMgrBus_BindPort(rets, {"T5-1", "T5-2", "T5-3"}), 0);
    EXPECT_THAT(codes(rets), ElementsAre(1, 1, 7, 1026, 273, fake::kStoreRefused, 9, 261));
    EXPECT_FALSE(rets[5].port);
    ASSERT_TRUE(rets[6].port && rets[7].port) << "still pointing at the removed bindings";
    EXPECT_FALSE(platform().findPort(rets[6].port->getPortIndex()));
    EXPECT_FALSE(platform().findPort(rets[7].port->getPortIndex()));
    EXPECT_EQ(platform().ports.size(), 1u);
    EXPECT_EQ(platform().mediaListening.count("dev3"), 1u) << "the RTSP listener stays after nginx refused";
    EXPECT_THAT(platform().journalWith("store.Unbind"), ElementsAre("store.UnbindTELMIPort " + rets[6].port->getPortIndex(),
                                                                     "store.UnbindTELMIPort " + rets[7].port->getPortIndex()));
    EXPECT_THAT(platform().journalWith("nginx."), ElementsAre("nginx.ModifyConfig 9 20002")) << "no restart";
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] [deviceId=%s,errCode=%d]ZQ_DeviceMgr_BindTELMIPort failed."));
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] [Rtspport=%d] notify add port listen fail."));
    EXPECT_THAT(logText(5), EndsWith("[httpport=20002] nginx add port listen fail."));

    platform().inject("Reboot", 0);
    EXPECT_EQ(ZQ_TELMIMgrBus_BindPort(rets, {"T5-4"}), 0);
    EXPECT_EQ(rets.back().resultCode, 0) << "a failed restart changes no result";
    EXPECT_THAT(logText(5), EndsWith("nginx reboot fail when bind port."));
}

TEST_F(BindTest, UnbindGoesMediaNginxStorePerBindingAndRestartsOnce) {
    auto withRtsp = platform().addPort("dev1", 8001, 554);
    auto withoutRtsp = platform().addPort("dev2", 8002, 0);
    platform().mediaListening["dev1"] = 554;

    EXPECT_THAT(unbind({withRtsp->index, std::string(37, 'x'), "", std::string(36, 'x'), withoutRtsp->index}),
                ElementsAre(0, 1, 1, 1040, 0));
    EXPECT_THAT(platform().journal,
                ElementsAre("media PutMediaPort", "nginx.ModifyConfig 8 8001", "store.UnbindTELMIPort " + withRtsp->index,
                            "nginx.ModifyConfig 8 8002", "store.UnbindTELMIPort " + withoutRtsp->index, "nginx.Reboot"));
    EXPECT_NE(platform().mediaCommands[0].text.find("{\"devIndex\":\"dev1\",\"rtspPort\":554,\"rtspPortBind\":false}"),
              std::string::npos);
    EXPECT_THAT(platform().ports, IsEmpty());
    EXPECT_TRUE(platform().logged(3, "[%s(%d)] unbindPort start."));
    EXPECT_TRUE(platform().logged(3, "[%s(%d)] unbindPort end."));

    platform().journal.clear();
    EXPECT_THAT(unbind({withRtsp->index}), ElementsAre(1040));
    EXPECT_THAT(platform().journal, IsEmpty()) << "no change, no restart";
}

TEST_F(BindTest, UnbindFailures) {
    auto kept = platform().addPort("dev1", 8001, 554);
    auto nginxFails = platform().addPort("dev2", 8002, 0);
    auto storeFails = platform().addPort("dev3", 8003, 0);
    platform().mediaReplies.push_back({0, "{\"code\":1}", ""});
    platform().inject("ModifyConfig", 0);
    EXPECT_THAT(unbind({kept->index, nginxFails->index}), ElementsAre(9, 0));
    EXPECT_TRUE(platform().findPort(kept->index)) << "a refused RTSP close keeps the binding";
    EXPECT_FALSE(platform().findPort(nginxFails->index));
    EXPECT_THAT(platform().journalWith("nginx."), ElementsAre("nginx.ModifyConfig 8 8002", "nginx.Reboot"));
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] [Rtspport=%d] notify del port listen fail."));
    EXPECT_TRUE(platform().logged(4, "[%s(%d)] [httpport=%d] nginx del port listen fail."));

    platform().journal.clear();
    platform().inject("ZQ_DeviceMgr_UnbindTELMIPort", fake::kStoreRefused);
    EXPECT_THAT(unbind({storeFails->index}), ElementsAre(fake::kStoreRefused));
    EXPECT_THAT(platform().journalWith("nginx."), ElementsAre("nginx.ModifyConfig 8 8003")) << "no restart";

    platform().inject("Reboot", 0);
    EXPECT_THAT(unbind({storeFails->index}), ElementsAre(0));
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] nginx reboot fail when bind port."));
}

class BindRetryTest : public BindTest {
protected:
    int retry(tagBindPortRet& ret, const std::string& index) { return ZQ_TELMIMgrBus_BindRetry(ret, index); }

    // nginx starts listening, under a new process, after `probes` probes.
    void nginxListensAfter(int probes, int httpPort) {
        platform().onSleep = [probes, httpPort](int) {
            auto& fake = fake::fakePlatform();
            std::lock_guard<std::recursive_mutex> lock(fake.mutex);
            if (fake.sleptMs >= probes * 100) {
                fake.listeners[httpPort] = 43;
                fake.nginxPids = {43};
            }
        };
    }
};

TEST_F(BindRetryTest, RestartsNginxAndWaitsUntilItListens) {
    auto port = platform().addPort("dev1", 8001, 554);
    platform().nginxPids = {42};
    nginxListensAfter(3, 8001);
    tagBindPortRet ret;
    ret.resultCode = 77;
    EXPECT_EQ(retry(ret, port->index), 0);
    EXPECT_EQ(ret.resultCode, 0);
    EXPECT_EQ(ret.port, port);
    EXPECT_EQ(port->rtspStatus, 1);
    EXPECT_EQ(port->httpStatus, 1);
    EXPECT_EQ(platform().sleptMs, 300);
    EXPECT_THAT(platform().journal,
                ElementsAre("media gatewayProtocol", "nginx.getPid", "base.CheckPort 8001 mode=1",
                            "nginx.ModifyConfig 9 8001", "nginx.Reboot", "base.CheckPort 8001 mode=1",
                            "base.CheckPort 8001 mode=1", "base.CheckPort 8001 mode=1", "nginx.getPid",
                            "base.CheckPortOccupy 8001 ip=0.0.0.0 mode=1 pids=42,43"))
        << "the second process list adds to the first";
}

TEST_F(BindRetryTest, GivesUpAfterTheWholeBudget) {
    auto port = platform().addPort("dev1", 8001, 0);
    tagBindPortRet ret;
    EXPECT_EQ(retry(ret, port->index), 0);
    EXPECT_EQ(ret.resultCode, 9);
    EXPECT_EQ(port->httpStatus, 0);
    EXPECT_EQ(platform().sleptMs, 50000);
    EXPECT_EQ(platform().journalWith("base.CheckPort ").size(), 501u);
    EXPECT_THAT(logText(4), EndsWith("[httpport=8001, leftTime=0]Port is not occupied by nginx."));
    EXPECT_THAT(platform().journalWith("media"), IsEmpty()) << "no RTSP port, no media command";
}

TEST_F(BindRetryTest, OutcomesOfEachStep) {
    tagBindPortRet ret;
    ret.resultCode = 77;
    EXPECT_EQ(retry(ret, ""), 1);
    EXPECT_EQ(retry(ret, std::string(37, 'x')), 1);
    ret.port = std::make_shared<fake::FakePort>();
    EXPECT_EQ(retry(ret, std::string(36, 'x')), 1040);
    EXPECT_FALSE(ret.port);
    EXPECT_EQ(ret.resultCode, 77);

    auto port = platform().addPort("dev1", 8001, 554);
    platform().nginxPids = {42};
    platform().listeners[8001] = 42;
    platform().mediaReplies.push_back(
        {0, "{\"data\":{\"rsp\":{\"listenStatus\":{\"deviceIndex\":\"d\",\"rtspPort\":554,\"status\":\"fail\"}}}}", ""});
    EXPECT_EQ(retry(ret, port->index), 0);
    EXPECT_EQ(ret.resultCode, 260) << "the RTSP failure stands while nginx holds the HTTP port";
    EXPECT_EQ(port->rtspStatus, -1);
    EXPECT_EQ(port->httpStatus, 1);
    EXPECT_TRUE(platform().logged(4, "[%s(%d)] [Rtspport=%d] notify retry port listen fail."));
    EXPECT_THAT(platform().journalWith("nginx.Reboot"), IsEmpty());

    platform().listeners[8001] = 99;
    EXPECT_EQ(retry(ret, port->index), 0);
    EXPECT_EQ(ret.resultCode, 260);
    EXPECT_EQ(port->httpStatus, 0);
    EXPECT_THAT(logText(5), EndsWith("[httpport=8001]Port is occupied by other exe."));

    platform().listeners.erase(8001);
    struct Failure {
        const char* operation;
        int expected;
    } failures[] = {{"getPid", 9}, {"ModifyConfig", 261}, {"Reboot", 262}};
    for (const auto& failure : failures) {
        platform().inject(failure.operation, 0);
        EXPECT_EQ(retry(ret, port->index), 0);
        EXPECT_EQ(ret.resultCode, failure.expected) << failure.operation;
    }
    EXPECT_TRUE(platform().logged(4, "[%s(%d)] [httpport=%d] nginx del add port listen fail."));
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] nginx reboot fail."));

    nginxListensAfter(1, 8001);
    platform().inject("getPid", 1);  // the first read succeeds; the second one fails
    platform().inject("getPid", 0);
    EXPECT_EQ(retry(ret, port->index), 0);
    EXPECT_EQ(ret.resultCode, 9);
}

TEST_F(BindTest, RtspNeedFollowsTheDeviceCategory) {
    addDevice("dev1", "T5-1", 1);
    addDevice("dev2", "T5-2", 2);
    addDevice("dev3", "T5-3", 3);
    int need = 5;
    EXPECT_EQ(mgr().checkNeedRstpPort(need, "dev1"), 0);
    EXPECT_EQ(need, 1);
    EXPECT_EQ(mgr().checkNeedRstpPort(need, "dev2"), 0);
    EXPECT_EQ(need, 0);
    need = 5;
    EXPECT_EQ(mgr().checkNeedRstpPort(need, "dev3"), 274);
    EXPECT_EQ(need, 0);
    EXPECT_THAT(logText(5), EndsWith("[DeviceID=T5-3,Category=3] Not support device category."));
    EXPECT_EQ(mgr().checkNeedRstpPort(need, "gone"), 7);
    EXPECT_THAT(logText(5), EndsWith("[devIndex=gone]ZQ_DeviceMgr_GetDevice failed."));
}

}  // namespace
