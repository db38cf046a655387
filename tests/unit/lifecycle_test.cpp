#include <string>
#include <vector>

#include "LibraryTest.h"
#include "ZQTELMIMgrBus.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

using LifecycleTest = LibraryTest;

TEST_F(LifecycleTest, StartAnnouncesPortsAndRegistersEvenWhenAnnouncingFails) {
    EXPECT_EQ(ZQ_TELMIMgrBus_Stop(), 1) << "stop before start";
    EXPECT_THAT(platform().journal, ElementsAre("store.NotifyDetach"));

    platform().journal.clear();
    EXPECT_EQ(ZQ_TELMIMgrBus_Start(), 1);
    EXPECT_TRUE(platform().logged(4, "[%s(%d)] notifyMediaTELMIPort failed")) << "no RTSP port to announce";
    EXPECT_THAT(platform().journal, ElementsAre("nginx.getPid", "store.NotifyAttach"));
    EXPECT_EQ(platform().callbackContext, &mgr());

    platform().journal.clear();
    platform().addPort("dev1", 8001, 554);
    EXPECT_EQ(ZQ_TELMIMgrBus_Start(), 1);
    EXPECT_THAT(platform().journal, ElementsAre("media PutMediaPort", "nginx.getPid", "base.CheckPort 8001 mode=1",
                                                "nginx.ModifyConfig 9 8001", "store.NotifyAttach"));

    platform().journal.clear();
    EXPECT_EQ(ZQ_TELMIMgrBus_Stop(), 1);
    EXPECT_EQ(platform().callback, nullptr);
    EXPECT_THAT(platform().journal, ElementsAre("store.NotifyDetach")) << "no port, nginx or media change";
}

TEST_F(LifecycleTest, RemovedDeviceLosesItsFirstUserAndEachBindingByItsOwnUnbind) {
    ZQ_TELMIMgrBus_Start();
    auto first = platform().addUser("first", "dev1");
    platform().addUser("other", "dev2");
    auto second = platform().addUser("second", "dev1");
    auto portA = platform().addPort("dev1", 8001, 0);
    auto portOther = platform().addPort("dev2", 8002, 0);
    auto portB = platform().addPort("dev1", 8003, 0);
    platform().journal.clear();

    platform().notify(ZQDeviceMgr::deviceRemoved, "dev1");
    EXPECT_THAT(platform().journal,
                ElementsAre("store.DelTELMIUser " + first->index, "nginx.ModifyConfig 8 8001",
                            "store.UnbindTELMIPort " + portA->index, "nginx.Reboot", "nginx.ModifyConfig 8 8003",
                            "store.UnbindTELMIPort " + portB->index, "nginx.Reboot"));
    EXPECT_TRUE(platform().findUser(second->index)) << "only the first account of the device goes";
    EXPECT_TRUE(platform().findPort(portOther->index));
    EXPECT_EQ(platform().logsAt(3).size(), 4u) << "two unbindPort calls, no line of the callback's own";
}

TEST_F(LifecycleTest, OtherNotificationsChangeNothing) {
    ZQ_TELMIMgrBus_Start();
    platform().addUser("first", "dev1");
    platform().addPort("dev1", 8001, 0);
    platform().journal.clear();

    platform().notify(static_cast<ZQDeviceMgr::tagNotifyType>(0), "dev1");
    platform().notify(static_cast<ZQDeviceMgr::tagNotifyType>(2), "dev1");
    platform().notify(ZQDeviceMgr::deviceRemoved, "DEV1");
    ZQTELMIMgrBus::CInstanceMgr::devChangeCB(ZQDeviceMgr::deviceRemoved, nullptr, &mgr());
    char index[] = "dev1";
    ZQTELMIMgrBus::CInstanceMgr::devChangeCB(ZQDeviceMgr::deviceRemoved, index, nullptr);
    ZQ_TELMIMgrBus_Stop();
    platform().notify(ZQDeviceMgr::deviceRemoved, "dev1");
    EXPECT_THAT(platform().journal, ElementsAre("store.NotifyDetach"));
    EXPECT_EQ(platform().users.size(), 1u);
    EXPECT_EQ(platform().ports.size(), 1u);
}

}  // namespace
