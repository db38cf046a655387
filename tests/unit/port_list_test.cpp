#include <cstring>
#include <string>
#include <vector>

#include "LibraryTest.h"
#include "ZQTELMIMgrBus.h"

using namespace ZQTELMIMgrBus;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

using PortList = std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>>;

class PortListTest : public LibraryTest {
protected:
    int query(PortList& ports, int startPos, int maxResults, const std::string& keyWord = "") {
        tagTelmiQueryReq req;
        std::memset(&req, 0, sizeof(req));
        req.startPos = startPos;
        req.maxResults = maxResults;
        std::memcpy(req.keyWord, keyWord.data(), std::min(keyWord.size(), sizeof(req.keyWord)));
        rsp_ = {-1, -1};
        return ZQ_TELMIMgrBus_QueryTELMIPortList(ports, rsp_, req);
    }

    std::vector<std::string> devicesOf(const PortList& ports) {
        std::vector<std::string> devices;
        for (const auto& port : ports) {
            devices.push_back(port->getDeviceIndex());
        }
        return devices;
    }

    tagTelmiQueryRsp rsp_{};
};

TEST_F(PortListTest, RequestBounds) {
    PortList ports;
    EXPECT_EQ(query(ports, 500, 500, std::string(128, 'k')), 0);
    for (auto [startPos, maxResults] : {std::pair{501, 0}, {-1, 0}, {0, 501}, {0, -1}}) {
        EXPECT_EQ(query(ports, startPos, maxResults), 1) << startPos << "," << maxResults;
        EXPECT_EQ(rsp_.totalMatches, -1) << "nothing written";
    }
    EXPECT_EQ(query(ports, 0, 0, std::string(129, 'k')), 1) << "a key word filling the whole field";
    EXPECT_EQ(platform().logsAt(3).size(), 6u) << "only start lines after the first query";
}

TEST_F(PortListTest, PagesOldestFirstIncludingTheCallersEntriesAndRefreshesThePage) {
    platform().addDevice("dev1", 2, "T1");
    platform().addDevice("dev2", 2, "T2");
    platform().addDevice("dev3", 2, "T3");
    auto early = platform().addPort("dev0", 7999, 0);  // already in the caller's vector
    platform().ports.clear();
    platform().addPort("dev1", 8001, 554);
    platform().addPort("dev2", 8002, 555);
    platform().addPort("dev3", 8003, 0);
    platform().mediaListening = {{"dev1", 554}, {"dev2", 555}};
    platform().listeners = {{554, fake::FakePlatform::kMediaPid}, {8001, 42}};
    platform().nginxPids = {42};

    PortList ports{early};
    EXPECT_EQ(query(ports, 1, 2), 0);
    EXPECT_EQ(rsp_.totalMatches, 4);
    EXPECT_EQ(rsp_.numReturned, 2);
    EXPECT_THAT(devicesOf(ports), ElementsAre("dev1", "dev2"));
    EXPECT_EQ(platform().ports[0]->rtspStatus, 1);
    EXPECT_EQ(platform().ports[1]->rtspStatus, 0);
    EXPECT_EQ(platform().ports[0]->httpStatus, 1);
    EXPECT_EQ(platform().ports[1]->httpStatus, 0);
    EXPECT_EQ(platform().ports[2]->httpStatus, -1) << "off the page, not refreshed";
    EXPECT_THAT(platform().journal, ElementsAre("media GetMediaPortStatus", "nginx.getPid", "base.CheckPort 8001 mode=1",
                                                "base.CheckPortOccupy 8001 ip=0.0.0.0 mode=1 pids=42",
                                                "base.CheckPort 8002 mode=1"));
    EXPECT_TRUE(platform().logged(3, "[%s(%d)] Query Port List end"));

    platform().journal.clear();
    platform().logs.clear();
    ports.clear();
    EXPECT_EQ(query(ports, 3, 0), 0);
    EXPECT_THAT(ports, IsEmpty());
    EXPECT_EQ(rsp_.totalMatches, 3);
    EXPECT_EQ(rsp_.numReturned, 0);
    EXPECT_THAT(platform().journal, IsEmpty()) << "past the end: no refresh";
    EXPECT_FALSE(platform().logged(3, "[%s(%d)] Query Port List end"));

    EXPECT_EQ(query(ports, 0, 0), 0);
    EXPECT_EQ(rsp_.totalMatches, 3);
    EXPECT_EQ(rsp_.numReturned, 0);
    EXPECT_TRUE(platform().logged(2, "[%s(%d)] start updateHttpStatus,portsize=%d")) << "an empty page is refreshed";
    EXPECT_TRUE(platform().logged(3, "[%s(%d)] Query Port List end"));
}

TEST_F(PortListTest, KeyWordSearchesDeviceNameAndAccessIdAndBindingsOfVanishedDevicesGo) {
    platform().addDevice("dev1", 2, "TARN-AB", "Front Door");
    platform().addDevice("dev2", 4, "T5-XY", "Garage");
    platform().addDevice("dev3", 3, "OTHER-XY", "Yard");
    auto gone = platform().addPort("vanished", 8000, 500);
    platform().addPort("dev1", 8001, 0);
    platform().addPort("dev2", 8002, 0);
    platform().addPort("dev3", 8003, 0);

    PortList ports;
    EXPECT_EQ(query(ports, 0, 10, "fRoNT"), 0);
    EXPECT_THAT(devicesOf(ports), ElementsAre("dev1"));
    EXPECT_EQ(rsp_.totalMatches, 1);
    EXPECT_FALSE(platform().findPort(gone->index)) << "removed from the store while listing";
    EXPECT_THAT(platform().journalWith("store."), ElementsAre("store.UnbindTELMIPort " + gone->index));
    EXPECT_THAT(platform().journalWith("nginx.ModifyConfig"), IsEmpty()) << "its listeners are left alone";
    EXPECT_THAT(platform().journalWith("media PutMediaPort"), IsEmpty());

    ports.clear();
    EXPECT_EQ(query(ports, 0, 10, "xy"), 0);
    EXPECT_THAT(devicesOf(ports), ElementsAre("dev2")) << "access IDs of Tarn and Tarn5 devices only";
    ports.clear();
    EXPECT_EQ(query(ports, 0, 10, "tarn-a"), 0);
    EXPECT_THAT(devicesOf(ports), ElementsAre("dev1"));

    auto port = platform().ports[0];
    EXPECT_EQ(mgr().matchKeyWord(port, nullptr), 1);
    EXPECT_EQ(mgr().matchKeyWord(std::shared_ptr<ZQDeviceMgr::CTELMIPort>(), "a"), 1);
    EXPECT_EQ(mgr().matchKeyWord(port, "nothing"), -1);
    platform().removeDevice("dev1");
    EXPECT_EQ(mgr().matchKeyWord(port, "Front"), 7);
    EXPECT_TRUE(platform().logged(4, "[%s(%d)] [devIndex=%s]ZQ_DeviceMgr_GetDevice failed."));
}

}  // namespace
