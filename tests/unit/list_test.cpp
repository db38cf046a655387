#include "LibraryTest.h"

namespace {

using PortList = std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>>;

// The user list and the port list share their request checks, filtering and paging.
class ListTest : public LibraryTest {
protected:
    // The account names listed, in order; the response starts out as -7s, so untouched fields show.
    std::vector<std::string> users(int startPos, int maxResults, const std::string& keyWord = "") {
        rsp_ = {-7, -7};
        std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIUser>> users;
        code_ = ZQ_TELMIMgrBus_QueryUserList(users, rsp_, queryRequest(startPos, maxResults, keyWord));
        return eachOf(users, &ZQDeviceMgr::CTELMIUser::getUserName);
    }
    // The device indexes of the page, which starts from (and may keep) the caller's entries.
    std::vector<std::string> ports(int startPos, int maxResults, const std::string& keyWord = "", PortList ports = {}) {
        rsp_ = {-7, -7};
        code_ = ZQ_TELMIMgrBus_QueryTELMIPortList(ports, rsp_, queryRequest(startPos, maxResults, keyWord));
        return eachOf(ports, &ZQDeviceMgr::CTELMIPort::getDeviceIndex);
    }
    // (result code, numReturned, totalMatches) of the last query.
    std::tuple<int, int, int> outcome() const { return {code_, rsp_.numReturned, rsp_.totalMatches}; }

    int code_ = -1;
    tagTelmiQueryRsp rsp_ {};
};

TEST_F(ListTest, RequestsOutOfBoundsAreRefusedBeforeTheStoreIsWalked) {
    platform().addUser("orphan", "gone");
    platform().addPort("gone", 8001, 0);
    for (auto [startPos, maxResults, keyWord] :
         {std::tuple {-1, 10, 0}, {501, 10, 0}, {0, -1, 0}, {0, 501, 0}, {0, 10, 129}}) {
        platform().logs.clear();
        users(startPos, maxResults, std::string(keyWord, 'k'));
        EXPECT_EQ(outcome(), std::tuple(1, -7, -7));
        ports(startPos, maxResults, std::string(keyWord, 'k'));
        EXPECT_EQ(outcome(), std::tuple(1, -7, -7));
        EXPECT_THAT(messagesAt(3), ElementsAre("Query user List start", "Query port List start"));
        EXPECT_EQ(platform().logs.size(), 2u);
    }
    EXPECT_EQ(platform().users.size() + platform().ports.size(), 2u) << "neither orphan deleted";

    users(500, 500);
    EXPECT_EQ(code_, 0);
    users(0, 500, std::string(128, 'k'));
    EXPECT_EQ(code_, 0);
}

TEST_F(ListTest, UsersPageOldestFirstAfterCounting) {
    platform().addDevice("dev", 2, "CAM");
    for (auto [name, addTime] : {std::pair {"third", "2026-03"},
                                 {"first", "2026-01"},
                                 {"fifth", "2026-05"},
                                 {"second", "2026-02"},
                                 {"fourth", "2026-04"}}) {
        platform().addUser(name, "dev")->addTime = addTime;  // store order differs from age order
    }
    const auto endLogged = [] { return platform().logged(3, "[%s(%d)] Query user List end"); };

    EXPECT_THAT(users(5, 10), IsEmpty());
    EXPECT_EQ(outcome(), std::tuple(0, 0, 5));
    EXPECT_FALSE(endLogged()) << "paging stopped before the end";

    EXPECT_THAT(users(3, 10), ElementsAre("fourth", "fifth"));
    EXPECT_EQ(outcome(), std::tuple(0, 2, 5));
    EXPECT_TRUE(endLogged());
    EXPECT_THAT(users(1, 2), ElementsAre("second", "third"));
    EXPECT_EQ(outcome(), std::tuple(0, 2, 5));
}

TEST_F(ListTest, PortsPageOldestFirstIncludingTheCallersEntriesAndRefreshThePage) {
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

    EXPECT_THAT(ports(1, 2, "", {early}), ElementsAre("dev1", "dev2"));
    EXPECT_EQ(outcome(), std::tuple(0, 2, 4));
    EXPECT_THAT(eachOf(platform().ports, &fake::FakePort::rtspStatus), ElementsAre(1, 0, -1));
    EXPECT_THAT(eachOf(platform().ports, &fake::FakePort::httpStatus), ElementsAre(1, 0, -1))
        << "off the page, not refreshed";
    EXPECT_TRUE(platform().logged(3, "[%s(%d)] Query Port List end"));

    platform().journal.clear();
    platform().logs.clear();
    EXPECT_THAT(ports(3, 0), IsEmpty());
    EXPECT_EQ(outcome(), std::tuple(0, 0, 3));
    EXPECT_THAT(platform().journal, IsEmpty()) << "past the end: no refresh";
    EXPECT_FALSE(platform().logged(3, "[%s(%d)] Query Port List end"));

    EXPECT_THAT(ports(0, 0), IsEmpty());
    EXPECT_EQ(outcome(), std::tuple(0, 0, 3));
    EXPECT_TRUE(platform().logged(2, "[%s(%d)] start updateHttpStatus,portsize=%d")) << "an empty page is refreshed";
    EXPECT_TRUE(platform().logged(3, "[%s(%d)] Query Port List end"));
}

// Accounts search their own name, then their device's name and access ID, in the same case;
// bindings search their device's, in any case. A device of protocol 3 has no access ID.
TEST_F(ListTest, KeyWordsSearchNamesAndAccessIds) {
    platform().addDevice("dev-t", 2, "TarnCam", "Lobby Camera");
    platform().addDevice("dev-5", 4, "Tarn5Cam", "Garage");
    platform().addDevice("dev-o", 3, "OtherCam", "Roof");
    for (auto [name, device] : {std::pair {"alice", "dev-t"}, {"bob", "dev-5"}, {"carol", "dev-o"}}) {
        platform().addUser(name, device);
        platform().addPort(device, 8001, 0);
    }
    using Names = std::vector<std::string>;
    const std::tuple<const char*, Names, Names> cases[] = {
        {"Lobby", {"alice"}, {"dev-t"}},
        {"lobby", {}, {"dev-t"}},
        {"Cam", {"alice", "bob"}, {"dev-t", "dev-5"}},
        {"5Cam", {"bob"}, {"dev-5"}},
        {"tarncam", {}, {"dev-t"}},
        {"OtherCam", {}, {}},
        {"car", {"carol"}, {}},
        {"CAR", {}, {}},
        {"o", {"alice", "bob", "carol"}, {"dev-t", "dev-o"}},
    };
    for (const auto& [keyWord, names, devices] : cases) {
        EXPECT_EQ(users(0, 10, keyWord), names) << keyWord;
        EXPECT_EQ(ports(0, 10, keyWord), devices) << keyWord;
    }

    auto alice = platform().users[0];
    auto port = platform().ports[0];
    EXPECT_EQ(mgr().matchKeyWord(std::shared_ptr<ZQDeviceMgr::CTELMIUser>(), "x"), 1);
    EXPECT_EQ(mgr().matchKeyWord(alice, nullptr), 1);
    EXPECT_EQ(mgr().matchKeyWord(PortList::value_type(), "x"), 1);
    EXPECT_EQ(mgr().matchKeyWord(port, nullptr), 1);
    EXPECT_EQ(mgr().matchKeyWord(alice, "bob"), -1);
    EXPECT_EQ(mgr().matchKeyWord(port, "bob"), -1);
    platform().removeDevice("dev-t");
    EXPECT_EQ(mgr().matchKeyWord(alice, "lic"), 0) << "the account's own name needs no device";
    EXPECT_EQ(mgr().matchKeyWord(alice, "bob"), 7);
    EXPECT_EQ(mgr().matchKeyWord(port, "Lobby"), 7);
    EXPECT_THAT(messagesAt(4), ElementsAre("[devIndex=dev-t]ZQ_DeviceMgr_GetDevice failed.",
                                           "[devIndex=dev-t]ZQ_DeviceMgr_GetDevice failed."));
    EXPECT_THAT(platform().logs.back().text, StartsWith("[matchKeyWord(")) << "logged as the member's own";
}

// Only the store records go: a binding's listeners are left to unbindPort.
TEST_F(ListTest, RecordsOfVanishedDevicesAreDeletedAndNotCounted) {
    platform().addDevice("dev-1", 2, "CAM1");
    platform().addDevice("dev-2", 2, "CAM2");
    auto alive = platform().addUser("alive", "dev-1");
    auto lost = platform().addUser("lost", "dev-2");
    platform().addPort("dev-1", 8001, 554);
    auto gone = platform().addPort("dev-2", 8002, 555);
    platform().removeDevice("dev-2");

    EXPECT_THAT(users(0, 10, "l"), ElementsAre("alive")) << "the device is checked before the name";
    EXPECT_EQ(outcome(), std::tuple(0, 1, 1));
    EXPECT_THAT(ports(0, 10), ElementsAre("dev-1"));
    EXPECT_EQ(outcome(), std::tuple(0, 1, 1));
    EXPECT_THAT(platform().journalWith("store."),
                ElementsAre("store.DelTELMIUser " + lost->index, "store.UnbindTELMIPort " + gone->index));
    EXPECT_THAT(platform().journalWith("nginx.ModifyConfig"), IsEmpty());
    EXPECT_THAT(platform().journalWith("media PutMediaPort"), IsEmpty());
    EXPECT_THAT(platform().users, ElementsAre(alive));

    // The device leaves between the walk's check and the key-word match: the account goes too.
    platform().afterGetDevice = [](const std::string& index) { platform().removeDevice(index); };
    EXPECT_THAT(users(0, 10, "CAM"), IsEmpty());
    EXPECT_EQ(outcome(), std::tuple(0, 0, 0));
    EXPECT_THAT(platform().users, IsEmpty());
}

}  // namespace
