#include "LibraryTest.h"

namespace {

using PortList = std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>>;

class PortListTest : public LibraryTest {
protected:
    // The device indexes of the page, which starts from (and may keep) the caller's entries.
    std::vector<std::string> query(int startPos, int maxResults, const std::string& keyWord = "", PortList ports = {}) {
        rsp_ = {-1, -1};
        code_ = ZQ_TELMIMgrBus_QueryTELMIPortList(ports, rsp_, queryRequest(startPos, maxResults, keyWord));
        return eachOf(ports, &ZQDeviceMgr::CTELMIPort::getDeviceIndex);
    }
    // (numReturned, totalMatches) of the last query.
    std::pair<int, int> counts() const { return {rsp_.numReturned, rsp_.totalMatches}; }

    int code_ = -1;
    tagTelmiQueryRsp rsp_ {};
};

TEST_F(PortListTest, PagesOldestFirstIncludingTheCallersEntriesAndRefreshesThePage) {
    // The request bounds are the user list's, from the same code; one refusal shows they apply here.
    query(0, 501);
    EXPECT_EQ(code_, 1);
    EXPECT_EQ(rsp_.totalMatches, -1) << "nothing written";
    EXPECT_THAT(messagesAt(3), ElementsAre("Query port List start"));

    for (const char* device : {"dev1", "dev2", "dev3"}) {
        platform().addDevice(device, 2, std::string("T") + device);
    }
    auto early = platform().addPort("dev0", 7999, 0);  // already in the caller's vector
    platform().ports.clear();
    platform().addPort("dev1", 8001, 554);
    platform().addPort("dev2", 8002, 555);
    platform().addPort("dev3", 8003, 0);
    platform().mediaListening = {{"dev1", 554}, {"dev2", 555}};
    platform().listeners = {{554, fake::FakePlatform::kMediaPid}, {8001, 42}};
    platform().nginxPids = {42};

    EXPECT_THAT(query(1, 2, "", {early}), ElementsAre("dev1", "dev2"));
    EXPECT_EQ(counts(), std::pair(2, 4));
    EXPECT_THAT(eachOf(platform().ports, &fake::FakePort::rtspStatus), ElementsAre(1, 0, -1));
    EXPECT_THAT(eachOf(platform().ports, &fake::FakePort::httpStatus), ElementsAre(1, 0, -1))
        << "off the page, not refreshed";
    EXPECT_THAT(platform().journal,
                ElementsAre("media GetMediaPortStatus", "nginx.getPid", "base.CheckPort 8001 mode=1",
                            "base.CheckPortOccupy 8001 ip=0.0.0.0 mode=1 pids=42", "base.CheckPort 8002 mode=1"));
    EXPECT_TRUE(platform().logged(3, "[%s(%d)] Query Port List end"));

    platform().journal.clear();
    platform().logs.clear();
    EXPECT_THAT(query(3, 0), IsEmpty());
    EXPECT_EQ(counts(), std::pair(0, 3));
    EXPECT_THAT(platform().journal, IsEmpty()) << "past the end: no refresh";
    EXPECT_FALSE(platform().logged(3, "[%s(%d)] Query Port List end"));

    EXPECT_THAT(query(0, 0), IsEmpty());
    EXPECT_EQ(counts(), std::pair(0, 3));
    EXPECT_TRUE(platform().logged(2, "[%s(%d)] start updateHttpStatus,portsize=%d")) << "an empty page is refreshed";
    EXPECT_TRUE(platform().logged(3, "[%s(%d)] Query Port List end"));
}

TEST_F(PortListTest, KeyWordSearchesDeviceNameAndAccessIdAndBindingsOfVanishedDevicesGo) {
    platform().addDevice("dev1", 2, "TARN-AB", "Front Door");
    platform().addDevice("dev2", 4, "T5-XY", "Garage");
    platform().addDevice("dev3", 3, "OTHER-XY", "Yard");
    auto gone = platform().addPort("vanished", 8000, 500);
    for (const char* device : {"dev1", "dev2", "dev3"}) {
        platform().addPort(device, 8001, 0);
    }

    EXPECT_THAT(query(0, 10, "fRoNT"), ElementsAre("dev1"));
    EXPECT_EQ(rsp_.totalMatches, 1);
    EXPECT_THAT(platform().journalWith("store."), ElementsAre("store.UnbindTELMIPort " + gone->index))
        << "removed from the store while listing";
    EXPECT_THAT(platform().journalWith("nginx.ModifyConfig"), IsEmpty()) << "its listeners are left alone";
    EXPECT_THAT(platform().journalWith("media PutMediaPort"), IsEmpty());

    EXPECT_THAT(query(0, 10, "xy"), ElementsAre("dev2")) << "access IDs of Tarn and Tarn5 devices only";
    EXPECT_THAT(query(0, 10, "tarn-a"), ElementsAre("dev1"));

    auto port = platform().ports[0];
    EXPECT_EQ(mgr().matchKeyWord(port, nullptr), 1);
    EXPECT_EQ(mgr().matchKeyWord(std::shared_ptr<ZQDeviceMgr::CTELMIPort>(), "a"), 1);
    EXPECT_EQ(mgr().matchKeyWord(port, "nothing"), -1);
    platform().removeDevice("dev1");
    EXPECT_EQ(mgr().matchKeyWord(port, "Front"), 7);
    EXPECT_EQ(lastLog(4), "[devIndex=dev1]ZQ_DeviceMgr_GetDevice failed.");
    EXPECT_THAT(platform().logs.back().text, StartsWith("[matchKeyWord(")) << "logged as the member's own";
}

}  // namespace
