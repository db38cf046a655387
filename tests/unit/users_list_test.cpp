#include <cstring>
#include <string>
#include <vector>

#include "LibraryTest.h"
#include "ZQTELMIMgrBus.h"

using namespace ZQTELMIMgrBus;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

namespace {

using UserList = std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIUser>>;

tagTelmiQueryReq request(int startPos, int maxResults, const std::string& keyWord = "") {
    tagTelmiQueryReq req;
    std::memset(&req, 0, sizeof(req));
    req.startPos = startPos;
    req.maxResults = maxResults;
    std::memcpy(req.keyWord, keyWord.data(), std::min(keyWord.size(), sizeof(req.keyWord)));
    return req;
}

std::vector<std::string> namesOf(const UserList& users) {
    std::vector<std::string> names;
    for (const auto& user : users) {
        names.push_back(user->getUserName());
    }
    return names;
}

}  // namespace

class UserListTest : public LibraryTest {
protected:
    struct Page {
        int code;
        tagTelmiQueryRsp rsp;
        std::vector<std::string> names;
    };

    Page query(const tagTelmiQueryReq& req) {
        Page page{0, {-7, -7}, {}};
        UserList users;
        page.code = ZQ_TELMIMgrBus_QueryUserList(users, page.rsp, req);
        page.names = namesOf(users);
        return page;
    }

    bool endLogged() const { return platform().logged(3, "[%s(%d)] Query user List end"); }
};

TEST_F(UserListTest, RequestsOutOfBoundsAreRefusedBeforeTheStoreIsWalked) {
    platform().addUser("orphan", "gone");
    for (const auto& req : {request(-1, 10), request(501, 10), request(0, -1), request(0, 501),
                            request(0, 10, std::string(129, 'k'))}) {
        platform().logs.clear();
        const Page page = query(req);
        EXPECT_EQ(page.code, 1);
        EXPECT_EQ(page.rsp.numReturned, -7);
        EXPECT_EQ(page.rsp.totalMatches, -7);
        ASSERT_EQ(platform().logs.size(), 1u);
        EXPECT_EQ(platform().logs[0].format, "[%s(%d)] Query user List start");
        EXPECT_EQ(platform().logs[0].level, 3);
    }
    EXPECT_EQ(platform().users.size(), 1u);

    EXPECT_EQ(query(request(500, 500)).code, 0);
    EXPECT_EQ(query(request(0, 500, std::string(128, 'k'))).code, 0);
}

TEST_F(UserListTest, PagesOldestFirstAfterCounting) {
    platform().addDevice("dev", 2, "CAM");
    // Store order differs from age order.
    const std::vector<std::pair<std::string, std::string>> accounts = {
        {"third", "2026-03"}, {"first", "2026-01"}, {"fifth", "2026-05"}, {"second", "2026-02"}, {"fourth", "2026-04"}};
    for (const auto& [name, addTime] : accounts) {
        platform().addUser(name, "dev")->addTime = addTime;
    }

    Page page = query(request(5, 10));
    EXPECT_EQ(page.code, 0);
    EXPECT_EQ(page.rsp.numReturned, 0);
    EXPECT_EQ(page.rsp.totalMatches, 5);
    EXPECT_THAT(page.names, IsEmpty());
    EXPECT_FALSE(endLogged());

    page = query(request(3, 10));
    EXPECT_EQ(page.rsp.numReturned, 2);
    EXPECT_EQ(page.rsp.totalMatches, 5);
    EXPECT_THAT(page.names, ElementsAre("fourth", "fifth"));
    EXPECT_TRUE(endLogged());

    page = query(request(1, 2));
    EXPECT_THAT(page.names, ElementsAre("second", "third"));
    EXPECT_EQ(page.rsp.numReturned, 2);

    platform().logs.clear();
    page = query(request(0, 0));
    EXPECT_EQ(page.rsp.numReturned, 0);
    EXPECT_EQ(page.rsp.totalMatches, 5);
    EXPECT_THAT(page.names, IsEmpty());
    EXPECT_TRUE(endLogged());

    platform().users.clear();
    page = query(request(0, 10));
    EXPECT_EQ(page.code, 0);
    EXPECT_EQ(page.rsp.totalMatches, 0);
    EXPECT_EQ(page.rsp.numReturned, 0);
}

TEST_F(UserListTest, KeyWordSearchesNameDeviceNameAndAccessIdCaseSensitively) {
    platform().addDevice("dev-t", 2, "TarnCam", "Lobby Camera");
    platform().addDevice("dev-5", 4, "Tarn5Cam", "Garage");
    auto other = platform().addDevice("dev-o", 3, "", "Roof");
    other->tarnId = "OtherCam";
    platform().addUser("alice", "dev-t");
    platform().addUser("bob", "dev-5");
    platform().addUser("carol", "dev-o");

    EXPECT_THAT(query(request(0, 10, "Lobby")).names, ElementsAre("alice"));
    EXPECT_THAT(query(request(0, 10, "lobby")).names, IsEmpty());
    EXPECT_THAT(query(request(0, 10, "Cam")).names, UnorderedElementsAre("alice", "bob"));
    EXPECT_THAT(query(request(0, 10, "5Cam")).names, ElementsAre("bob"));
    EXPECT_THAT(query(request(0, 10, "OtherCam")).names, IsEmpty());  // protocol 3 has no access ID here
    EXPECT_THAT(query(request(0, 10, "car")).names, ElementsAre("carol"));
    Page page = query(request(0, 10, "o"));
    EXPECT_THAT(page.names, UnorderedElementsAre("alice", "bob", "carol"));
    EXPECT_EQ(page.rsp.totalMatches, 3);
}

TEST_F(UserListTest, AccountsOfVanishedDevicesAreDeletedAndNotCounted) {
    platform().addDevice("dev-1", 2, "CAM1");
    platform().addDevice("dev-2", 2, "CAM2");
    auto kept = platform().addUser("kept", "dev-1");
    auto lost = platform().addUser("lost", "dev-2");
    platform().removeDevice("dev-2");

    Page page = query(request(0, 10));
    EXPECT_THAT(page.names, ElementsAre("kept"));
    EXPECT_EQ(page.rsp.totalMatches, 1);
    EXPECT_THAT(platform().journalWith("store.DelTELMIUser"), ElementsAre("store.DelTELMIUser " + lost->index));

    platform().addUser("lost2", "dev-2");
    page = query(request(0, 10, "lost"));
    EXPECT_THAT(page.names, IsEmpty());
    EXPECT_EQ(page.rsp.totalMatches, 0);
    EXPECT_THAT(platform().users, ElementsAre(kept));
}

TEST_F(UserListTest, MatchKeyWordAnswers) {
    auto user = platform().addUser("alice", "dev-gone");
    EXPECT_EQ(mgr().matchKeyWord(std::shared_ptr<ZQDeviceMgr::CTELMIUser>(), "x"), 1);
    EXPECT_EQ(mgr().matchKeyWord(user, nullptr), 1);
    EXPECT_EQ(mgr().matchKeyWord(user, "lic"), 0);  // the account's own name needs no device
    EXPECT_EQ(mgr().matchKeyWord(user, "bob"), 7);
    ASSERT_EQ(platform().logsAt(4).size(), 1u);
    EXPECT_EQ(platform().logsAt(4)[0].format, "[%s(%d)] [devIndex=%s]ZQ_DeviceMgr_GetDevice failed.");
    EXPECT_THAT(platform().logsAt(4)[0].text, ::testing::EndsWith("[devIndex=dev-gone]ZQ_DeviceMgr_GetDevice failed."));
    platform().addDevice("dev-gone", 2, "CAM", "Hall");
    EXPECT_EQ(mgr().matchKeyWord(user, "bob"), -1);
}
