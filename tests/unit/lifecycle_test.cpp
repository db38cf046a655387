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
    auto portA = platform().addPort("dev1", 8001, 554);
    platform().addPort("dev2", 8002, 555);
    auto portB = platform().addPort("dev1", 8003, 556);
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

    // The account's deletion fails, and so does closing portB's RTSP listener: each binding is
    // still tried, and portB stays whole while its listener runs.
    platform().inject("store.DelTELMIUser", fake::kStoreRefused);
    platform().mediaReplies = {{0, R"({"code":"0"})", ""}, {1, "", "media module down"}};
    platform().notify(ZQDeviceMgr::deviceRemoved, "dev1");
    EXPECT_THAT(platform().journal,
                ElementsAre("store.DelTELMIUser " + first->index, "media PutMediaPort", "nginx.ModifyConfig 8 8001",
                            "store.UnbindTELMIPort " + portA->index, "nginx.Reboot", "media PutMediaPort",
                            "nginx.ModifyConfig 8 8005", "store.UnbindTELMIPort " + portC->index, "nginx.Reboot"));
    EXPECT_THAT(platform().mediaCommands[0].text, HasSubstr("\"rtspPort\":554"));
    EXPECT_THAT(platform().mediaCommands[1].text, HasSubstr("\"rtspPort\":556"));
    EXPECT_EQ(platform().findPort(portB->index), portB);
    EXPECT_EQ(messagesAt(3).size(), 6u) << "three unbindPort calls, no line of the callback's own";

    platform().journal.clear();
    EXPECT_EQ(ZQ_TELMIMgrBus_Stop(), 1);
    EXPECT_EQ(platform().callback, nullptr);
    platform().notify(ZQDeviceMgr::deviceRemoved, "dev2");
    EXPECT_THAT(platform().journal, ElementsAre("store.NotifyDetach")) << "ports, nginx and media stay as they are";
}

}  // namespace
