#include <list>
#include <string>
#include <vector>

#include "LibraryTest.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

using NginxTest = LibraryTest;

TEST_F(NginxTest, PidListIsAppendedToAndUntouchedOnFailure) {
    platform().nginxPids = {7, 8};
    std::list<int> pids{5};
    EXPECT_EQ(mgr().getNginxPidList(pids), 1);
    EXPECT_THAT(pids, ElementsAre(5, 7, 8));
    EXPECT_EQ(platform().logsAt(2).size(), 2u);
    EXPECT_TRUE(platform().logged(2, "[%s(%d)] Nginx pid=%d"));

    platform().nginxPids.clear();
    EXPECT_EQ(mgr().getNginxPidList(pids), 1) << "no nginx running is still a successful read";

    platform().inject("getPid", 0);
    EXPECT_EQ(mgr().getNginxPidList(pids), 0);
    EXPECT_THAT(pids, ElementsAre(5, 7, 8));
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] Get nginx Pid list failed"));
}

TEST_F(NginxTest, StartAnnouncesMediaThenQuitsNginxThenEditsEveryHttpPort) {
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
    ASSERT_EQ(platform().mediaCommands.size(), 1u);
    EXPECT_NE(platform().mediaCommands[0].text.find(
                  "[{\"devIndex\":\"dev1\",\"rtspPort\":554,\"rtspPortBind\":true},{\"devIndex\":\"" +
                  std::string(36, 'd') + "\",\"rtspPort\":555,\"rtspPortBind\":true}]"),
              std::string::npos)
        << "only ports with an RTSP port, device index cut to 36 characters";
    EXPECT_TRUE(platform().logged(4, "[%s(%d)] Get nginx Pid list success, then quit old nginx."));
    EXPECT_TRUE(platform().logged(4, "[%s(%d)] [httpport=%d] Port is abnormal."));
    EXPECT_FALSE(platform().logged(4, "[%s(%d)] notifyMediaTELMIPort failed"));
}

TEST_F(NginxTest, StartGoesOnPastEveryFailure) {
    EXPECT_EQ(mgr().notifyAllTELMIPort(), 1);
    EXPECT_THAT(platform().journal, ElementsAre("nginx.getPid")) << "no nginx running: not told to quit";
    EXPECT_TRUE(platform().logged(4, "[%s(%d)] notifyMediaTELMIPort failed")) << "an empty media list is a failure";

    platform().reset();
    platform().addPort("dev1", 8001, 0);
    platform().addPort("dev2", 8002, 0);
    platform().listeners[8001] = 99;
    platform().nginxPids = {42};
    platform().inject("getPid", 0);
    platform().inject("ModifyConfig", 0);
    platform().inject("ModifyConfig", 0);
    EXPECT_EQ(mgr().notifyAllTELMIPort(), 1);
    EXPECT_THAT(platform().journalWith("nginx."),
                ElementsAre("nginx.getPid", "nginx.ModifyConfig 8 8001", "nginx.ModifyConfig 9 8002"));
    EXPECT_TRUE(platform().logged(4, "[%s(%d)] [httpport=%d] nginx del port listen fail."));
    EXPECT_TRUE(platform().logged(4, "[%s(%d)] [httpport=%d] nginx add port listen fail."));
}

TEST_F(NginxTest, HttpStatusIsOneOnlyForPortsNginxHolds) {
    std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> ports;
    EXPECT_EQ(mgr().updateNgixTELMIPortStatus(ports), 1);
    EXPECT_THAT(platform().journal, IsEmpty());
    ASSERT_EQ(platform().logs.size(), 1u);
    EXPECT_THAT(platform().logs[0].text, ::testing::EndsWith("start updateHttpStatus,portsize=0"));

    auto freePort = platform().addPort("dev1", 8001, 0);
    auto nginxPort = platform().addPort("dev2", 8002, 0);
    auto otherPort = platform().addPort("dev3", 8003, 0);
    ports.assign(platform().ports.begin(), platform().ports.end());
    platform().listeners[8002] = 42;
    platform().listeners[8003] = 99;
    platform().nginxPids = {41, 42};

    platform().inject("getPid", 0);
    EXPECT_EQ(mgr().updateNgixTELMIPortStatus(ports), 9);
    EXPECT_EQ(freePort->httpStatus, -1);

    EXPECT_EQ(mgr().updateNgixTELMIPortStatus(ports), 0);
    EXPECT_EQ(freePort->httpStatus, 0);
    EXPECT_EQ(nginxPort->httpStatus, 1);
    EXPECT_EQ(otherPort->httpStatus, 0);
    EXPECT_THAT(platform().journalWith("nginx.getPid"), ElementsAre("nginx.getPid", "nginx.getPid"));
    EXPECT_THAT(platform().journalWith("base.CheckPortOccupy"),
                ElementsAre("base.CheckPortOccupy 8002 ip=0.0.0.0 mode=1 pids=41,42",
                            "base.CheckPortOccupy 8003 ip=0.0.0.0 mode=1 pids=41,42"));
}

}  // namespace
