#include "LibraryTest.h"

namespace {

using ListenersTest = LibraryTest;

TEST_F(ListenersTest, RemovedDeviceLosesItsFirstUserAndEachBindingByItsOwnUnbindWhileStarted) {
    EXPECT_EQ(ZQ_TELMIMgrBus_Stop(), 1) << "stop before start";
    platform().journal.clear();
    EXPECT_EQ(ZQ_TELMIMgrBus_Start(), 1);
    EXPECT_TRUE(platform().logged(4, "[%s(%d)] notifyMediaTELMIPort failed")) << "no RTSP port to announce";
    EXPECT_THAT(platform().journal, ElementsAre("nginx.getPid", "store.NotifyAttach")) << "no nginx to quit";
    EXPECT_EQ(platform().callbackContext, &mgr());

    auto first = platform().addUser("first", "dev1");
    platform().addUser("other", "dev2");
    platform().addUser("second", "dev1");  // only the first account of the device goes
    auto portA = platform().addPort("dev1", 8001, 554);
    platform().addPort("dev2", 8002, 555);
    platform().addPort("dev1", 8003, 556);
    auto portC = platform().addPort("dev1", 8005, 0);
    platform().journal.clear();

    // Other notifications, another spelling of the index, and calls missing an argument change nothing.
    platform().notify(static_cast<ZQDeviceMgr::tagNotifyType>(0), "dev1");
    platform().notify(static_cast<ZQDeviceMgr::tagNotifyType>(2), "dev1");
    platform().notify(ZQDeviceMgr::deviceRemoved, "DEV1");
    CInstanceMgr::devChangeCB(ZQDeviceMgr::deviceRemoved, nullptr, &mgr());
    char index[] = "dev1";
    CInstanceMgr::devChangeCB(ZQDeviceMgr::deviceRemoved, index, nullptr);
    EXPECT_THAT(platform().journal, IsEmpty());

    // The account's deletion fails, and so does closing the RTSP listener on 556: each binding is
    // still tried, and that one stays whole while its listener runs.
    platform().inject("store.DelTELMIUser", fake::kStoreRefused);
    platform().mediaReplies = {{0, R"({"code":"0"})", ""}, {1, "", "media module down"}};
    platform().notify(ZQDeviceMgr::deviceRemoved, "dev1");
    EXPECT_THAT(platform().journal,
                ElementsAre("store.DelTELMIUser " + first->index, "media PutMediaPort", "nginx.ModifyConfig 8 8001",
                            "store.UnbindTELMIPort " + portA->index, "nginx.Reboot", "media PutMediaPort",
                            "nginx.ModifyConfig 8 8005", "store.UnbindTELMIPort " + portC->index, "nginx.Reboot"));
    EXPECT_THAT(platform().mediaCommands[0].text, HasSubstr("\"rtspPort\":554"));
    EXPECT_THAT(platform().mediaCommands[1].text, HasSubstr("\"rtspPort\":556"));
    EXPECT_EQ(messagesAt(3).size(), 6u) << "three unbindPort calls, no line of the callback's own";

    platform().journal.clear();
    EXPECT_EQ(ZQ_TELMIMgrBus_Stop(), 1);
    EXPECT_EQ(platform().callback, nullptr);
    platform().notify(ZQDeviceMgr::deviceRemoved, "dev2");
    EXPECT_THAT(platform().journal, ElementsAre("store.NotifyDetach")) << "ports, nginx and media stay as they are";
}

TEST_F(ListenersTest, StartAnnouncesMediaThenQuitsNginxThenEditsEveryHttpPortGoingOnPastFailures) {
    platform().addPort("dev1", 8001, 554);
    platform().addPort("dev2", 0, 0);
    platform().addPort("dev3", 8001, 0);
    platform().addPort(std::string(40, 'd'), 8003, 555);
    platform().nginxPids = {42};
    platform().listeners[8003] = 99;

    EXPECT_EQ(mgr().notifyAllTELMIPort(), 1);
    EXPECT_THAT(platform().journal,
                ElementsAre("media PutMediaPort", "nginx.getPid", "nginx.Quit", "base.CheckPort 8001 mode=1",
                            "nginx.ModifyConfig 9 8001", "base.CheckPort 0 mode=1", "nginx.ModifyConfig 9 0",
                            "base.CheckPort 8001 mode=1", "nginx.ModifyConfig 9 8001", "base.CheckPort 8003 mode=1",
                            "nginx.ModifyConfig 8 8003"));
    EXPECT_THAT(platform().mediaCommands[0].text,
                HasSubstr(R"([{"devIndex":"dev1","rtspPort":554,"rtspPortBind":true},{"devIndex":")" +
                          std::string(36, 'd') + R"(","rtspPort":555,"rtspPortBind":true}])"))
        << "only ports with an RTSP port, device index cut to 36 characters";
    EXPECT_THAT(messagesAt(4),
                ElementsAre("Get nginx Pid list success, then quit old nginx.",
                            "[httpport=0] nginx add port listen fail.", "[httpport=8003] Port is abnormal."))
        << "nginx refuses port 0, and the others still go through";

    platform().journal.clear();
    platform().logs.clear();
    platform().inject("nginx.getPid", 0);
    for (int port = 0; port < 4; ++port) {
        platform().inject("nginx.ModifyConfig", 0);
    }
    EXPECT_EQ(mgr().notifyAllTELMIPort(), 1);
    EXPECT_THAT(platform().journalWith("nginx."),
                ElementsAre("nginx.getPid", "nginx.ModifyConfig 9 8001", "nginx.ModifyConfig 9 0",
                            "nginx.ModifyConfig 9 8001", "nginx.ModifyConfig 8 8003"));
    EXPECT_TRUE(platform().logged(4, "[%s(%d)] [httpport=%d] nginx del port listen fail."));
    EXPECT_TRUE(platform().logged(4, "[%s(%d)] [httpport=%d] nginx add port listen fail."));
}

TEST_F(ListenersTest, HttpStatusIsOneOnlyForPortsNginxHolds) {
    std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> ports;
    EXPECT_EQ(mgr().updateNgixTELMIPortStatus(ports), 1);
    EXPECT_THAT(platform().journal, IsEmpty());
    EXPECT_EQ(lastLog(2), "start updateHttpStatus,portsize=0");

    for (int port : {8001, 8002, 8003}) {
        ports.push_back(platform().addPort("dev", static_cast<unsigned short>(port), 0));
    }
    platform().listeners = {{8002, 42}, {8003, 99}};
    platform().nginxPids = {41, 42};
    platform().inject("nginx.getPid", 0);
    EXPECT_EQ(mgr().updateNgixTELMIPortStatus(ports), 9);
    EXPECT_THAT(eachOf(platform().ports, &fake::FakePort::httpStatus), ElementsAre(-1, -1, -1));
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] Get nginx Pid list failed"));
    EXPECT_EQ(mgr().updateNgixTELMIPortStatus(ports), 0);
    EXPECT_THAT(eachOf(platform().ports, &fake::FakePort::httpStatus), ElementsAre(0, 1, 0))
        << "free, held by nginx, held by another program";
    EXPECT_THAT(platform().journalWith("nginx.getPid"), ElementsAre("nginx.getPid", "nginx.getPid"));
    EXPECT_TRUE(platform().logged(2, "[%s(%d)] Nginx pid=%d"));
    EXPECT_THAT(platform().journalWith("base.CheckPortOccupy"),
                ElementsAre("base.CheckPortOccupy 8002 ip=0.0.0.0 mode=1 pids=41,42",
                            "base.CheckPortOccupy 8003 ip=0.0.0.0 mode=1 pids=41,42"));
}

}  // namespace
