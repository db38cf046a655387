#include "LibraryTest.h"

namespace {

using NginxTest = LibraryTest;

TEST_F(NginxTest, StartAnnouncesMediaThenQuitsNginxThenEditsEveryHttpPortGoingOnPastFailures) {
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

TEST_F(NginxTest, HttpStatusIsOneOnlyForPortsNginxHolds) {
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
