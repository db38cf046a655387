#include "LibraryTest.h"

using ::testing::UnorderedElementsAre;

namespace {

class UserListTest : public LibraryTest {
protected:
    // The names listed, in order; the response starts out as -7s, so untouched fields show.
    std::vector<std::string> query(int startPos, int maxResults, const std::string& keyWord = "") {
        rsp_ = {-7, -7};
        std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIUser>> users;
        code_ = ZQ_TELMIMgrBus_QueryUserList(users, rsp_, queryRequest(startPos, maxResults, keyWord));
        return eachOf(users, &ZQDeviceMgr::CTELMIUser::getUserName);
    }
    // (result code, numReturned, totalMatches) of the last query.
    std::tuple<int, int, int> outcome() const { return {code_, rsp_.numReturned, rsp_.totalMatches}; }

    bool endLogged() const { return platform().logged(3, "[%s(%d)] Query user List end"); }

    int code_ = -1;
    tagTelmiQueryRsp rsp_ {};
};

TEST_F(UserListTest, RequestsOutOfBoundsAreRefusedBeforeTheStoreIsWalked) {
    platform().addUser("orphan", "gone");
    for (auto [startPos, maxResults, keyWord] :
         {std::tuple {-1, 10, 0}, {501, 10, 0}, {0, -1, 0}, {0, 501, 0}, {0, 10, 129}}) {
        platform().logs.clear();
        query(startPos, maxResults, std::string(keyWord, 'k'));
        EXPECT_EQ(outcome(), std::tuple(1, -7, -7));
        ASSERT_EQ(platform().logs.size(), 1u);
        EXPECT_TRUE(platform().logged(3, "[%s(%d)] Query user List start"));
    }
    EXPECT_EQ(platform().users.size(), 1u);

    query(500, 500);
    EXPECT_EQ(code_, 0);
    query(0, 500, std::string(128, 'k'));
    EXPECT_EQ(code_, 0);
}

TEST_F(UserListTest, PagesOldestFirstAfterCounting) {
    platform().addDevice("dev", 2, "CAM");
    for (auto [name, addTime] : {std::pair {"third", "2026-03"},
                                 {"first", "2026-01"},
                                 {"fifth", "2026-05"},
                                 {"second", "2026-02"},
                                 {"fourth", "2026-04"}}) {
        platform().addUser(name, "dev")->addTime = addTime;  // store order differs from age order
    }

    EXPECT_THAT(query(5, 10), IsEmpty());
    EXPECT_EQ(outcome(), std::tuple(0, 0, 5));
    EXPECT_FALSE(endLogged()) << "paging stopped before the end";

    EXPECT_THAT(query(3, 10), ElementsAre("fourth", "fifth"));
    EXPECT_EQ(outcome(), std::tuple(0, 2, 5));
    EXPECT_TRUE(endLogged());
    EXPECT_THAT(query(1, 2), ElementsAre("second", "third"));
    EXPECT_EQ(outcome(), std::tuple(0, 2, 5));
}

TEST_F(UserListTest, KeyWordMatchesNameDeviceNameAndAccessIdCaseSensitively) {
    platform().addDevice("dev-t", 2, "TarnCam", "Lobby Camera");
    platform().addDevice("dev-5", 4, "Tarn5Cam", "Garage");
    platform().addDevice("dev-o", 3, "", "Roof")->tarnId = "OtherCam";
    platform().addUser("alice", "dev-t");
    platform().addUser("bob", "dev-5");
    platform().addUser("carol", "dev-o");

    EXPECT_THAT(query(0, 10, "Lobby"), ElementsAre("alice"));
    EXPECT_THAT(query(0, 10, "lobby"), IsEmpty());
    EXPECT_THAT(query(0, 10, "Cam"), UnorderedElementsAre("alice", "bob"));
    EXPECT_THAT(query(0, 10, "5Cam"), ElementsAre("bob"));
    EXPECT_THAT(query(0, 10, "OtherCam"), IsEmpty()) << "protocol 3 has no access ID";
    EXPECT_THAT(query(0, 10, "car"), ElementsAre("carol"));
    EXPECT_THAT(query(0, 10, "CAR"), IsEmpty()) << "the account's name too";
    EXPECT_THAT(query(0, 10, "o"), UnorderedElementsAre("alice", "bob", "carol"));
    EXPECT_EQ(rsp_.totalMatches, 3);

    auto alice = platform().users[0];
    EXPECT_EQ(mgr().matchKeyWord(std::shared_ptr<ZQDeviceMgr::CTELMIUser>(), "x"), 1);
    EXPECT_EQ(mgr().matchKeyWord(alice, nullptr), 1);
    EXPECT_EQ(mgr().matchKeyWord(alice, "bob"), -1);
    platform().removeDevice("dev-t");
    EXPECT_EQ(mgr().matchKeyWord(alice, "lic"), 0) << "the account's own name needs no device";
    EXPECT_EQ(mgr().matchKeyWord(alice, "bob"), 7);
    EXPECT_EQ(lastLog(4), "[devIndex=dev-t]ZQ_DeviceMgr_GetDevice failed.");
}

TEST_F(UserListTest, AccountsOfVanishedDevicesAreDeletedAndNotCounted) {
    platform().addDevice("dev-1", 2, "CAM1");
    platform().addDevice("dev-2", 2, "CAM2");
    auto kept = platform().addUser("kept", "dev-1");
    auto lost = platform().addUser("lost", "dev-2");
    platform().removeDevice("dev-2");

    EXPECT_THAT(query(0, 10), ElementsAre("kept"));
    EXPECT_EQ(rsp_.totalMatches, 1);
    EXPECT_THAT(platform().journalWith("store.DelTELMIUser"), ElementsAre("store.DelTELMIUser " + lost->index));

    platform().addUser("lost2", "dev-2");
    EXPECT_THAT(query(0, 10, "lost"), IsEmpty());
    EXPECT_EQ(rsp_.totalMatches, 0);
    EXPECT_THAT(platform().users, ElementsAre(kept));

    // The device leaves between the walk's check and the key-word match: the account goes too.
    platform().afterGetDevice = [](const std::string& index) { platform().removeDevice(index); };
    EXPECT_THAT(query(0, 10, "CAM"), IsEmpty());
    EXPECT_EQ(rsp_.totalMatches, 0);
    EXPECT_THAT(platform().users, IsEmpty());
    EXPECT_EQ(lastLog(4), "[devIndex=dev-1]ZQ_DeviceMgr_GetDevice failed.");
}

}  // namespace
