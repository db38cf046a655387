#include "LibraryTest.h"

namespace {

using LifecycleTest = LibraryTest;

TEST_F(LifecycleTest, RemovedDeviceLosesItsFirstUserAndEachBindingByItsOwnUnbindWhileStarted) {
    EXPECT_EQ(ZQ_TELMIMgrBus_Stop(), 1) << "stop before start";
    platform().journal.clear();
    EXPECT_EQ(ZQ_TELMIMgrBus_Start(), 1);
    EXPECT_TRUE(platform().logged(4, "[%s(%d)] notifyMediaTELMIPort failed")) << "no RTSP port to announce";
    EXPECT_THAT(platform().journal, ElementsAre("nginx.getPid", "store.NotifyAttach")) << "no nginx to quit";
    EXPECT_EQ(platform().callbackContext, &mgr());

    auto first = platform().addUser("first", "dev1");
    platform().addUser("other", "dev2");
    platform().addUser("second", "dev1");  // only the first account of the device goes
    auto portA = platform().addPort("dev1", 8001, 0);
    platform().addPort("dev2", 8002, 554);
    auto portB = platform().addPort("dev1", 8003, 0);
    platform().journal.clear();

    // Other notifications, another spelling of the index, and calls missing an argument change nothing.
    platform().notify(static_cast<ZQDeviceMgr::tagNotifyType>(0), "dev1");
    platform().notify(static_cast<ZQDeviceMgr::tagNotifyType>(2), "dev1");
    platform().notify(ZQDeviceMgr::deviceRemoved, "DEV1");
    CInstanceMgr::devChangeCB(ZQDeviceMgr::deviceRemoved, nullptr, &mgr());
    char index[] = "dev1";
    CInstanceMgr::devChangeCB(ZQDeviceMgr::deviceRemoved, index, nullptr);
    EXPECT_THAT(platform().journal, IsEmpty());

    platform().notify(ZQDeviceMgr::deviceRemoved, "dev1");
    EXPECT_THAT(platform().journal,
                ElementsAre("store.DelTELMIUser " + first->index, "nginx.ModifyConfig 8 8001",
                            "store.UnbindTELMIPort " + portA->index, "nginx.Reboot", "nginx.ModifyConfig 8 8003",
                            "store.UnbindTELMIPort " + portB->index, "nginx.Reboot"));
    EXPECT_EQ(messagesAt(3).size(), 4u) << "two unbindPort calls, no line of the callback's own";

    platform().journal.clear();
    EXPECT_EQ(ZQ_TELMIMgrBus_Stop(), 1);
    EXPECT_EQ(platform().callback, nullptr);
    platform().notify(ZQDeviceMgr::deviceRemoved, "dev2");
    EXPECT_THAT(platform().journal, ElementsAre("store.NotifyDetach")) << "ports, nginx and media stay as they are";
}

}  // namespace
