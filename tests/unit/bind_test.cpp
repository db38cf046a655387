#include "LibraryTest.h"

namespace {

class BindTest : public LibraryTest {
protected:
    // Tarn5 devices, so port mode asks the store about their port binding.
    void addDevices(std::initializer_list<int> numbers) {
        for (int n : numbers) {
            platform().addDevice("dev" + std::to_string(n), 4, "T5-" + std::to_string(n));
        }
    }

    std::vector<int> bind(const std::vector<std::string>& ids) {
        EXPECT_EQ(ZQ_TELMIMgrBus_BindPort(rets_, ids), 0);
        return eachOf(rets_, &tagBindPortRet::resultCode);
    }

    std::vector<int> unbind(const std::vector<std::string>& indexes) {
        std::vector<int> results;
        EXPECT_EQ(ZQ_TELMIMgrBus_UnbindPort(results, indexes), 0);
        return results;
    }

    std::vector<tagBindPortRet> rets_;
};

TEST_F(BindTest, BindGoesStoreMediaNginxPerDeviceAndRestartsNginxOnce) {
    addDevices({1, 2});
    rets_.resize(1);
    rets_[0].resultCode = 42;
    EXPECT_THAT(bind({"T5-1", "T5-2"}), ElementsAre(42, 0, 0));
    EXPECT_EQ(rets_[2].port, platform().ports[1]);
    EXPECT_THAT(platform().journal,
                ElementsAre("bus.QueryDeviceList", "base.getHttpPort", "base.getRtspPort",
                            "store.BindTELMIPort dev=dev1 http=20000 rtsp=30000 spare=0", "media PutMediaPort",
                            "nginx.ModifyConfig 9 20000", "bus.QueryDeviceList", "base.getHttpPort", "base.getRtspPort",
                            "store.BindTELMIPort dev=dev2 http=20001 rtsp=30001 spare=0", "media PutMediaPort",
                            "nginx.ModifyConfig 9 20001", "nginx.Reboot"));
    EXPECT_THAT(platform().mediaCommands[0].text,
                HasSubstr(R"([{"devIndex":"dev1","rtspPort":30000,"rtspPortBind":true}])"));

    platform().journal.clear();
    platform().logs.clear();
    EXPECT_THAT(bind({}), ElementsAre(42, 0, 0));
    EXPECT_THAT(platform().journal, IsEmpty()) << "nothing bound, nothing restarted";
    EXPECT_THAT(messagesAt(3), ElementsAre("bindPort start.", "bindPort end."));
}

TEST_F(BindTest, EachFailedBindStepUndoesOnlyTheStoreRecord) {
    addDevices({1, 2, 3, 4, 5});
    platform().addPort("dev5", 1, 2);
    platform().inject("base.getHttpPort", 0);
    const std::string longest(31, 'L');
    EXPECT_THAT(bind({"", longest + "L", longest, "T5-5", "T5-1"}), ElementsAre(1, 1, 7, 1026, 273))
        << "31 characters pass the length check";
    EXPECT_THAT(platform().journalWith("base.get"), ElementsAre("base.getHttpPort")) << "no RTSP port asked";
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] [devId=%s]checkBoundDevice failed."));
    EXPECT_EQ(lastLog(5), "[devId=T5-1]get free port failed.");

    platform().inject("store.BindTELMIPort", fake::kStoreRefused);
    platform().mediaReplies.push_back({3, "", "media down"});  // for T5-2
    platform().inject("nginx.ModifyConfig", 0);                // for T5-3
    platform().journal.clear();
    EXPECT_THAT(bind({"T5-1", "T5-2", "T5-3"}), ElementsAre(1, 1, 7, 1026, 273, fake::kStoreRefused, 9, 261));
    ASSERT_TRUE(rets_[6].port && rets_[7].port) << "still pointing at the removed bindings";
    EXPECT_EQ(platform().mediaListening.count("dev3"), 1u) << "the RTSP listener stays after nginx refused";
    EXPECT_THAT(platform().journalWith("store.Unbind"),
                ElementsAre("store.UnbindTELMIPort " + rets_[6].port->getPortIndex(),
                            "store.UnbindTELMIPort " + rets_[7].port->getPortIndex()));
    EXPECT_THAT(platform().journalWith("nginx."), ElementsAre("nginx.ModifyConfig 9 20002")) << "no restart";
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] [deviceId=%s,errCode=%d]ZQ_DeviceMgr_BindTELMIPort failed."));
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] [Rtspport=%d] notify add port listen fail."));
    EXPECT_EQ(lastLog(5), "[httpport=20002] nginx add port listen fail.");

    platform().inject("nginx.Reboot", 0);
    EXPECT_EQ(bind({"T5-4"}).back(), 0) << "a failed restart changes no result";
    EXPECT_EQ(lastLog(5), "nginx reboot fail when bind port.");
}

TEST_F(BindTest, UnbindGoesMediaNginxStorePerBindingRestartsOnceAndStopsAtAFailedStep) {
    auto withRtsp = platform().addPort("dev1", 8001, 554);
    auto withoutRtsp = platform().addPort("dev2", 8002, 0);
    platform().mediaListening["dev1"] = 554;

    EXPECT_THAT(unbind({withRtsp->index, std::string(37, 'x'), "", std::string(36, 'x'), withoutRtsp->index}),
                ElementsAre(0, 1, 1, 1040, 0));
    EXPECT_THAT(platform().journal, ElementsAre("media PutMediaPort", "nginx.ModifyConfig 8 8001",
                                                "store.UnbindTELMIPort " + withRtsp->index, "nginx.ModifyConfig 8 8002",
                                                "store.UnbindTELMIPort " + withoutRtsp->index, "nginx.Reboot"));
    EXPECT_THAT(platform().mediaCommands[0].text,
                HasSubstr(R"([{"devIndex":"dev1","rtspPort":554,"rtspPortBind":false}])"));
    EXPECT_THAT(messagesAt(3), ElementsAre("unbindPort start.", "unbindPort end."));

    platform().journal.clear();
    EXPECT_THAT(unbind({withRtsp->index}), ElementsAre(1040));
    EXPECT_THAT(platform().journal, IsEmpty()) << "no change, no restart";

    auto kept = platform().addPort("dev1", 8001, 554);
    auto nginxFails = platform().addPort("dev2", 8002, 0);
    auto storeFails = platform().addPort("dev3", 8003, 0);
    platform().mediaReplies.push_back({0, "{\"code\":1}", ""});
    platform().inject("nginx.ModifyConfig", 0);
    EXPECT_THAT(unbind({kept->index, nginxFails->index}), ElementsAre(9, 0));
    EXPECT_TRUE(platform().findPort(kept->index)) << "a refused RTSP close keeps the binding";
    EXPECT_THAT(platform().journalWith("nginx."), ElementsAre("nginx.ModifyConfig 8 8002", "nginx.Reboot"));
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] [Rtspport=%d] notify del port listen fail."));
    EXPECT_TRUE(platform().logged(4, "[%s(%d)] [httpport=%d] nginx del port listen fail."));

    platform().journal.clear();
    platform().inject("store.UnbindTELMIPort", fake::kStoreRefused);
    EXPECT_THAT(unbind({storeFails->index}), ElementsAre(fake::kStoreRefused));
    EXPECT_THAT(platform().journalWith("nginx."), ElementsAre("nginx.ModifyConfig 8 8003")) << "no restart";

    platform().inject("nginx.Reboot", 0);
    EXPECT_THAT(unbind({storeFails->index}), ElementsAre(0));
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] nginx reboot fail when bind port."));
}

class BindRetryTest : public LibraryTest {
protected:
    int retry(const std::string& index) { return ZQ_TELMIMgrBus_BindRetry(ret_, index); }
    // (result, resultCode, RTSP status, HTTP status) of a retry of the port's binding.
    std::tuple<int, int, int, int> retry(const std::shared_ptr<fake::FakePort>& port) {
        const int result = retry(port->index);
        return {result, ret_.resultCode, port->rtspStatus, port->httpStatus};
    }

    // nginx starts listening, under a new process, after `probes` probes.
    void nginxListensAfter(int probes, int httpPort) {
        platform().onSleep = [probes, httpPort](int) {
            if (fake::fakePlatform().sleptMs >= probes * 100) {
                fake::fakePlatform().listeners[httpPort] = 43;
                fake::fakePlatform().nginxPids = {43};
            }
        };
    }

    tagBindPortRet ret_;
};

TEST_F(BindRetryTest, RestartsNginxAndWaitsUntilItListensOrTheBudgetIsSpent) {
    auto port = platform().addPort("dev1", 8001, 554);
    platform().nginxPids = {42};
    nginxListensAfter(3, 8001);
    ret_.resultCode = 77;
    EXPECT_EQ(retry(port), std::tuple(0, 0, 1, 1));
    EXPECT_EQ(ret_.port, port);
    EXPECT_EQ(platform().sleptMs, 300);
    EXPECT_THAT(platform().journal,
                ElementsAre("media gatewayProtocol", "nginx.getPid", "base.CheckPort 8001 mode=1",
                            "nginx.ModifyConfig 9 8001", "nginx.Reboot", "base.CheckPort 8001 mode=1",
                            "base.CheckPort 8001 mode=1", "base.CheckPort 8001 mode=1", "nginx.getPid",
                            "base.CheckPortOccupy 8001 ip=0.0.0.0 mode=1 pids=42,43"))
        << "the second process list adds to the first";

    auto silent = platform().addPort("dev2", 8002, 0);
    platform().journal.clear();
    EXPECT_EQ(retry(silent), std::tuple(0, 9, -1, 0));
    EXPECT_EQ(platform().sleptMs, 300 + 50000) << "the whole budget";
    EXPECT_EQ(platform().journalWith("base.CheckPort ").size(), 501u);
    EXPECT_EQ(lastLog(4), "[httpport=8002, leftTime=0]Port is not occupied by nginx.");
    EXPECT_THAT(platform().journalWith("media"), IsEmpty()) << "no RTSP port, no media command";
}

TEST_F(BindRetryTest, OutcomesOfEachStep) {
    ret_.resultCode = 77;
    EXPECT_EQ(retry(""), 1);
    EXPECT_EQ(retry(std::string(37, 'x')), 1);
    ret_.port = std::make_shared<fake::FakePort>();
    EXPECT_EQ(retry(std::string(36, 'x')), 1040);
    EXPECT_TRUE(!ret_.port && ret_.resultCode == 77);

    auto port = platform().addPort("dev1", 8001, 554);
    platform().nginxPids = {42};
    platform().listeners[8001] = 42;
    platform().mediaReplies.push_back(
        {0, R"({"data":{"rsp":{"listenStatus":{"deviceIndex":"d","rtspPort":554,"status":"fail"}}}})", ""});
    EXPECT_EQ(retry(port), std::tuple(0, 260, -1, 1)) << "the RTSP failure stands while nginx holds the HTTP port";
    EXPECT_TRUE(platform().logged(4, "[%s(%d)] [Rtspport=%d] notify retry port listen fail."));
    EXPECT_THAT(platform().journalWith("nginx.Reboot"), IsEmpty());

    platform().listeners[8001] = 99;
    EXPECT_EQ(retry(port), std::tuple(0, 260, 1, 0)) << "RTSP listening again, another program on the HTTP port";
    EXPECT_EQ(lastLog(5), "[httpport=8001]Port is occupied by other exe.");

    platform().listeners.erase(8001);
    for (auto [operation, expected] :
         {std::pair {"nginx.getPid", 9}, {"nginx.ModifyConfig", 261}, {"nginx.Reboot", 262}}) {
        platform().inject(operation, 0);
        EXPECT_EQ(std::get<1>(retry(port)), expected) << operation;
    }
    EXPECT_TRUE(platform().logged(4, "[%s(%d)] [httpport=%d] nginx del add port listen fail."));
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] nginx reboot fail."));

    nginxListensAfter(1, 8001);
    platform().inject("nginx.getPid", 1);  // the first read succeeds; the second one fails
    platform().inject("nginx.getPid", 0);
    EXPECT_EQ(std::get<1>(retry(port)), 9);
}

TEST_F(BindTest, RtspNeedFollowsTheDeviceCategory) {
    for (uint8_t category : {1, 2, 3}) {
        platform().addDevice("dev" + std::to_string(category), 4, "T5-" + std::to_string(category), "", category);
    }
    for (auto [index, code, need] : {std::tuple {"dev1", 0, 1}, {"dev2", 0, 0}, {"dev3", 274, 0}, {"gone", 7, 0}}) {
        int given = 5;
        EXPECT_EQ(mgr().checkNeedRstpPort(given, index), code) << index;
        EXPECT_EQ(given, need) << index;
    }
    EXPECT_THAT(messagesAt(5), ElementsAre("[DeviceID=T5-3,Category=3] Not support device category.",
                                           "[devIndex=gone]ZQ_DeviceMgr_GetDevice failed."));
}

}  // namespace
