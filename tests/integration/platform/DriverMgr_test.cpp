// libDriverMgr of the reference platform, in front of the real media daemon.
#include <gtest/gtest.h>
#include <signal.h>

#include "ChildProgram.h"
#include "DriverCif.h"
#include "GatewayTestHome.h"

using namespace gwtest;

// The real media daemon answers; stopped, it holds commands unanswered.
TEST(DriverTest, AnswersAbsentAnsweringAndSilentDaemons) {
    TempHome home;
    inChild(home, [&home] {
        const std::string command = "{\"method\":\"PutMediaPort\",\"moduleType\":10,\"params\":{\"devices\":[]}}";
        char* rsp = nullptr;
        int rspLen = 0;
        std::string error;
        auto send = [&](int timeoutSec) {
            return DriverCif_InputCmdToMediaSyn(command.c_str(), static_cast<int>(command.size()), &rsp, &rspLen,
                                                &error, 0, timeoutSec);
        };
        EXPECT_NE(send(1), 0);
        EXPECT_NE(error.find("not reachable"), std::string::npos) << error;
        EXPECT_EQ(rsp, nullptr);
        Program daemon({ZQ_MEDIAD_PATH, "--home", home.path(), "--foreground"});
        ASSERT_TRUE(eventually([&] { return send(1) == 0; })) << error;
        EXPECT_EQ(std::string(rsp, static_cast<size_t>(rspLen)), "{\"code\":\"0\"}");
        EXPECT_EQ(rsp[rspLen], '\0');
        DriverCif_FreeBuffer(rsp);
        ::kill(daemon.pid(), SIGSTOP);
        EXPECT_NE(send(0), 0);
        EXPECT_NE(error.find("time limit"), std::string::npos) << error;
    });
}
