#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "LibraryTest.h"
#include "ZQTELMIMgrBus.h"

using namespace ZQTELMIMgrBus;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr int kStoreNotFound = fake::kStoreNotFound;
constexpr int kStoreRefused = fake::kStoreRefused;

tagTELMIUserInput userInput(const std::string& name, const std::string& password, const std::string& deviceID) {
    tagTELMIUserInput input;
    std::memset(&input, 0, sizeof(input));
    std::memcpy(input.userName, name.data(), std::min(name.size(), sizeof(input.userName)));
    std::memcpy(input.password, password.data(), std::min(password.size(), sizeof(input.password)));
    std::memcpy(input.deviceID, deviceID.data(), std::min(deviceID.size(), sizeof(input.deviceID)));
    return input;
}

std::vector<int> codesOf(const std::vector<ZQDeviceMgr::tagAddUserRet>& results) {
    std::vector<int> codes;
    for (const auto& ret : results) {
        codes.push_back(ret.result);
    }
    return codes;
}

}  // namespace

class UsersTest : public LibraryTest {
protected:
    // Adds one account for a fresh Tarn device and returns its code.
    int addOne(const std::string& name, const std::string& password = "Str0ng!pass") {
        const std::string id = "ID" + std::to_string(++devices_);
        platform().addDevice("dev-" + id, 2, id);
        std::vector<ZQDeviceMgr::tagAddUserRet> results;
        EXPECT_EQ(ZQ_TELMIMgrBus_AddUser(results, {userInput(name, password, id)}), 0);
        EXPECT_EQ(results.size(), 1u);
        return results.empty() ? -999 : results[0].result;
    }

    int checkBound(std::string& deviceIndex, const std::string& id, int mode) {
        return mgr().checkBoundDevice(deviceIndex, id, static_cast<ZQConfigMgr::TELMIMode>(mode));
    }

    int devices_ = 0;
};

TEST_F(UsersTest, AddUserAppendsOneOutcomePerInputInOrderWithoutClearing) {
    platform().addDevice("dev-1", 2, "CAM1");
    platform().addDevice("dev-3", 4, "CAM3");
    std::vector<ZQDeviceMgr::tagAddUserRet> results(1);
    results[0].result = 42;

    EXPECT_EQ(ZQ_TELMIMgrBus_AddUser(results, {}), 0);
    ASSERT_EQ(results.size(), 1u);

    EXPECT_EQ(ZQ_TELMIMgrBus_AddUser(results, {userInput("first", "pw1", "CAM1"), userInput("admin", "pw2", "CAM1"),
                                               userInput("third", "pw3", "CAM3")}),
              0);
    EXPECT_THAT(codesOf(results), ElementsAre(42, 0, 1, 0));
    ASSERT_TRUE(results[1].user && results[3].user);
    EXPECT_FALSE(results[2].user);
    EXPECT_EQ(results[1].user->getDeviceIndex(), "dev-1");
    EXPECT_EQ(results[3].user->getUserName(), "third");
    EXPECT_EQ(platform().journalWith("store.AddTELMIUser").size(), 2u);
    EXPECT_TRUE(platform().logged(2, "[%s(%d)] checkBoundDevice start"));
    EXPECT_TRUE(platform().logged(2, "[%s(%d)] checkBoundDevice stop"));
}

TEST_F(UsersTest, AddUserRefusesReservedAndIllFormedNamesWithoutLogOrQuery) {
    EXPECT_EQ(addOne(std::string(32, 'n')), 0);
    EXPECT_EQ(addOne("Admin"), 0);
    EXPECT_EQ(addOne("admin "), 0);
    EXPECT_EQ(addOne("administrator"), 0);
    EXPECT_EQ(addOne("inner space"), 0);
    EXPECT_EQ(addOne("del\x7f"), 0);
    const size_t queriesForGoodNames = platform().deviceQueries.size();
    platform().logs.clear();

    for (const std::string& bad : {std::string(33, 'n'), std::string(), std::string("admin"), std::string("caf\xc3\xa9"),
                                  std::string("tab\tname")}) {
        EXPECT_EQ(addOne(bad), 1) << bad;
    }
    for (char forbidden : std::string("/\\:*?'\"<>|%")) {
        EXPECT_EQ(addOne(std::string("a") + forbidden + "b"), 1) << forbidden;
    }
    EXPECT_EQ(platform().deviceQueries.size(), queriesForGoodNames);
    EXPECT_THAT(platform().logs, IsEmpty());
}

TEST_F(UsersTest, CheckNameCharTakesBytesAsSigned) {
    for (int byte = 0; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        const bool forbidden = byte < 0x20 || byte >= 0x80 || std::strchr("/\\:*?'\"<>|%", byte) != nullptr;
        EXPECT_EQ(mgr().checkNameChar(&c, 1), forbidden ? 0 : 1) << byte;
    }
    EXPECT_EQ(mgr().checkNameChar("ab/", 2), 1);  // only the first len bytes count
    EXPECT_EQ(mgr().checkNameChar("", 0), 1);
}

TEST_F(UsersTest, PasswordLengthAndStrength) {
    EXPECT_EQ(addOne("sixteen", std::string(16, 'p')), 0);
    EXPECT_EQ(addOne("seventeen", std::string(17, 'p')), 1);
    EXPECT_EQ(addOne("empty", ""), 1);
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] checkPassword failed."));

    std::vector<std::string> rated;
    int level = 0;
    platform().passwordLevel = [&](const std::string& password, const std::string& user) {
        rated.push_back(password + "/" + user);
        return level;
    };
    level = -1;
    EXPECT_EQ(addOne("unrated", "pw"), 256);
    level = 0;
    EXPECT_EQ(addOne("weak", "pw"), 257);
    level = -2;
    EXPECT_EQ(addOne("odd", "pw"), 0);
    level = 3;
    EXPECT_EQ(addOne("strong", "pw"), 0);
    EXPECT_THAT(rated, ElementsAre("pw/unrated", "pw/weak", "pw/odd", "pw/strong"));
}

TEST_F(UsersTest, StoredDigestIsTheRfc2617HA1OverTheGatewayRealm) {
    platform().realm = "testrealm@host.com";
    platform().addDevice("dev-m", 4, "LION");
    std::vector<ZQDeviceMgr::tagAddUserRet> results;
    ZQ_TELMIMgrBus_AddUser(results, {userInput("Mufasa", "Circle Of Life", "LION")});
    ASSERT_EQ(results.size(), 1u);
    ASSERT_EQ(results[0].result, 0);
    EXPECT_EQ(results[0].user->getDigestPassword(), "939e7578ed9e3c518a452acee763bce9");
    EXPECT_THAT(platform().journal,
                ::testing::Contains("store.AddTELMIUser Mufasa dev=dev-m ha1=939e7578ed9e3c518a452acee763bce9"));

    std::string ha1 = "untouched";
    platform().userCfgPresent = false;
    EXPECT_EQ(mgr().checkPassword(ha1, "Circle Of Life", "Mufasa"), 9);
    EXPECT_EQ(ha1, "untouched");
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] ZQ_ConfigMgr_GetUserCfg failed."));
    EXPECT_EQ(mgr().checkPassword(ha1, "pw", std::string(33, 'u')), 1);
    EXPECT_EQ(mgr().checkPassword(ha1, "pw", ""), 1);
}

TEST_F(UsersTest, AddUserReportsStoreRefusal) {
    platform().addDevice("dev-1", 2, "CAM1");
    platform().inject("ZQ_DeviceMgr_AddTELMIUser", kStoreRefused);
    std::vector<ZQDeviceMgr::tagAddUserRet> results;
    ZQ_TELMIMgrBus_AddUser(results, {userInput("u", "pw", "CAM1"), userInput("v", "pw", "CAM1")});
    // The second account finds the device bound by nothing, as the first was refused.
    EXPECT_THAT(codesOf(results), ElementsAre(kStoreRefused, 0));
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] addUser failed."));
}

TEST_F(UsersTest, CheckBoundDeviceAsksTheBusPerMode) {
    std::string index;
    EXPECT_EQ(checkBound(index, std::string(32, 'x'), 1), 1);
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] CheckBoundDevice failed 1"));
    EXPECT_EQ(checkBound(index, "", 1), 1);
    EXPECT_THAT(platform().deviceQueries, IsEmpty());

    const std::string id31(31, 'x');
    for (int mode : {1, 2, 0}) {
        EXPECT_EQ(checkBound(index, id31, mode), 7);
    }
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] CheckBoundDevice failed 5"));
    ASSERT_EQ(platform().deviceQueries.size(), 3u);
    const std::vector<std::pair<int, int>> kindAndFilter = {{6, 1}, {4, 3}, {0, 0}};
    for (size_t i = 0; i < 3; ++i) {
        const auto& cond = platform().deviceQueries[i];
        EXPECT_EQ(cond.startIndex, 0);
        EXPECT_EQ(cond.maxNum, 10000);
        EXPECT_EQ(std::string(cond.keyWord), id31);
        EXPECT_EQ(cond.devKind, kindAndFilter[i].first);
        EXPECT_EQ(cond.devFilter, kindAndFilter[i].second);
        EXPECT_EQ(cond.spare1, 0);
        EXPECT_TRUE(std::all_of(std::begin(cond.spare2), std::end(cond.spare2), [](uint8_t b) { return b == 0; }));
        EXPECT_TRUE(std::all_of(cond.keyWord + 31, std::end(cond.keyWord), [](char c) { return c == 0; }));
    }

    platform().inject("ZQ_DeviceMgrBus_QueryDeviceList", kStoreRefused);
    EXPECT_EQ(checkBound(index, "ANY", 1), kStoreRefused);
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] ZQ_DeviceMgrBus_QueryDeviceList failed."));
}

TEST_F(UsersTest, CheckBoundDeviceTestsTarnForAccountsAndTarn5PerMode) {
    auto tarn = platform().addDevice("dev-t", 2, "TARN");
    tarn->accountBound = 1;
    tarn->portBound = 0;
    std::string index;
    EXPECT_EQ(checkBound(index, "TARN", 2), 1026);
    EXPECT_EQ(index, "dev-t");
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] CheckBoundDevice failed 2"));

    auto tarn5 = platform().addDevice("dev-5", 4, "TARN5");
    tarn5->accountBound = 1;
    tarn5->portBound = 0;
    index.clear();
    EXPECT_EQ(checkBound(index, "TARN5", 2), 0);
    EXPECT_EQ(index, "dev-5");
    index.clear();
    EXPECT_EQ(checkBound(index, "TARN5", 1), 1026);
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] CheckBoundDevice failed 3"));
    index.clear();
    EXPECT_EQ(checkBound(index, "TARN5", 3), 0);  // no bound test in other modes
    tarn5->accountBound = 0;
    tarn5->portBound = 1;
    index.clear();
    EXPECT_EQ(checkBound(index, "TARN5", 2), 1026);
    EXPECT_EQ(index, "dev-5");
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] CheckBoundDevice failed 4"));
}

TEST_F(UsersTest, CheckBoundDeviceMatchesOnlyTheProtocolsOwnIdAndTheFirstDeviceDecides) {
    auto other = platform().addDevice("dev-o", 3, "");
    other->tarnId = "SHARED";
    auto wrongField = platform().addDevice("dev-w", 2, "");
    wrongField->tarn5Id = "SHARED";  // a Tarn device is known by its Tarn ID only
    std::string index;
    EXPECT_EQ(checkBound(index, "SHARED", 1), 7);
    EXPECT_EQ(index, "");

    platform().addDevice("dev-a", 4, "TWIN")->accountBound = 1;
    platform().addDevice("dev-b", 4, "TWIN")->accountBound = 0;
    EXPECT_EQ(checkBound(index, "TWIN", 1), 1026);
    EXPECT_EQ(index, "dev-a");
    EXPECT_EQ(checkBound(index = "", "twin", 1), 7);  // IDs compare case-sensitively
}

TEST_F(UsersTest, QuickAddUserNamesAccountsAfterAccessIds) {
    const std::string longId(40, 'L');
    platform().addDevice("dev-t", 2, "TARN");
    platform().addDevice("dev-x", 7, "OTHER");
    platform().addDevice("dev-5", 4, "TARN5");
    platform().addDevice("dev-l", 2, longId);
    platform().addDevice("dev-r", 4, "REFUSED");
    platform().passwordLevel = [](const std::string&, const std::string& user) { return user == "REFUSED" ? 0 : 3; };
    std::vector<ZQDeviceMgr::tagAddUserRet> results(1);

    EXPECT_EQ(ZQ_TELMIMgrBus_QuickAddUser(results, "secret"), 0);
    ASSERT_EQ(results.size(), 4u);
    EXPECT_EQ(results[1].user->getUserName(), "TARN");
    EXPECT_EQ(results[1].user->getDeviceIndex(), "dev-t");
    EXPECT_EQ(results[2].user->getUserName(), "TARN5");
    EXPECT_EQ(results[3].user->getUserName(), longId.substr(0, 32));
    EXPECT_EQ(results[3].user->getDigestPassword().size(), 32u);
    EXPECT_TRUE(platform().logged(4, "[%s(%d)] checkPassword failed."));
    EXPECT_TRUE(platform().logged(2, "[%s(%d)] getQuickUserInfo stop"));

    ASSERT_EQ(platform().deviceQueries.size(), 1u);
    const auto& cond = platform().deviceQueries[0];
    EXPECT_EQ(cond.maxNum, 500);
    EXPECT_EQ(cond.keyWord[0], '\0');
    EXPECT_EQ(cond.devKind, 6);
    EXPECT_EQ(cond.devFilter, 1);
}

TEST_F(UsersTest, QuickAddUserFailures) {
    std::vector<ZQDeviceMgr::tagAddUserRet> results;
    EXPECT_EQ(ZQ_TELMIMgrBus_QuickAddUser(results, ""), 1);
    EXPECT_EQ(ZQ_TELMIMgrBus_QuickAddUser(results, std::string(17, 'p')), 1);
    EXPECT_THAT(platform().deviceQueries, IsEmpty());
    EXPECT_EQ(ZQ_TELMIMgrBus_QuickAddUser(results, std::string(16, 'p')), 274);  // no device at all

    platform().addDevice("dev-x", 3, "OTHER");
    EXPECT_EQ(ZQ_TELMIMgrBus_QuickAddUser(results, "secret"), 274);
    platform().addDevice("dev-t", 2, "TARN");
    platform().passwordLevel = [](const std::string&, const std::string&) { return 0; };
    EXPECT_EQ(ZQ_TELMIMgrBus_QuickAddUser(results, "secret"), 274);
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] The number of encoding devices is 0."));
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] getQuickUserInfo failed."));
    EXPECT_THAT(platform().journalWith("store.QuickAddTELMIUser"), IsEmpty());

    platform().passwordLevel = nullptr;
    platform().inject("ZQ_DeviceMgrBus_QueryDeviceList", kStoreRefused);
    EXPECT_EQ(ZQ_TELMIMgrBus_QuickAddUser(results, "secret"), kStoreRefused);
    platform().inject("ZQ_DeviceMgr_QuickAddTELMIUser", kStoreNotFound);
    EXPECT_EQ(ZQ_TELMIMgrBus_QuickAddUser(results, "secret"), kStoreNotFound);
    EXPECT_THAT(results, IsEmpty());
}

TEST_F(UsersTest, ModUserKeepsItsOwnDeviceButNotAnothersBound) {
    platform().realm = "testrealm@host.com";
    platform().addDevice("dev-1", 2, "CAM1");
    platform().addDevice("dev-2", 4, "CAM2");
    platform().addDevice("dev-3", 2, "CAM3");
    auto own = platform().addUser("old", "dev-1", "oldha1");
    platform().addUser("other", "dev-2");

    EXPECT_EQ(ZQ_TELMIMgrBus_ModUser(own->index, userInput("Mufasa", "Circle Of Life", "CAM1")), 0);
    EXPECT_TRUE(platform().logged(4, "[%s(%d)] checkBoundDevice failed."));
    EXPECT_EQ(own->name, "Mufasa");
    EXPECT_EQ(own->digest, "939e7578ed9e3c518a452acee763bce9");

    EXPECT_EQ(ZQ_TELMIMgrBus_ModUser(own->index, userInput("u", "pw", "CAM2")), 1026);
    EXPECT_EQ(ZQ_TELMIMgrBus_ModUser(own->index, userInput("u", "pw", "NOPE")), 7);
    EXPECT_EQ(own->deviceIndex, "dev-1");
    EXPECT_EQ(ZQ_TELMIMgrBus_ModUser(own->index, userInput("u", "pw", "CAM3")), 0);
    EXPECT_EQ(own->deviceIndex, "dev-3");
}

TEST_F(UsersTest, ModUserChecksInputsThenAccountThenPasswordThenStore) {
    platform().addDevice("dev-1", 2, "CAM1");
    auto user = platform().addUser("old", "dev-1");
    const auto good = userInput("name", "pw", "CAM1");
    EXPECT_EQ(mgr().modUser(user->index, userInput("admin", "pw", "CAM1")), 1);
    EXPECT_EQ(mgr().modUser(user->index, userInput(std::string(33, 'n'), "pw", "CAM1")), 1);
    EXPECT_EQ(mgr().modUser(user->index, userInput("a:b", "pw", "CAM1")), 1);
    EXPECT_EQ(mgr().modUser(user->index, userInput("name", "pw", std::string(32, 'd'))), 1);
    EXPECT_EQ(mgr().modUser(user->index, userInput("name", std::string(17, 'p'), "CAM1")), 1);
    EXPECT_EQ(mgr().modUser(user->index, userInput("name", "", "CAM1")), 1);
    EXPECT_EQ(mgr().modUser(user->index.substr(0, 35), good), 1);
    EXPECT_EQ(mgr().modUser(std::string(36, 'z'), good), 1);
    EXPECT_THAT(platform().deviceQueries, IsEmpty());
    EXPECT_THAT(platform().logs, IsEmpty());

    platform().passwordLevel = [](const std::string&, const std::string&) { return 0; };
    EXPECT_EQ(mgr().modUser(user->index, good), 257);
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] checkPassword failed"));
    platform().passwordLevel = nullptr;
    platform().inject("ZQ_DeviceMgr_ModifyTELMIUser", kStoreRefused);
    EXPECT_EQ(mgr().modUser(user->index, good), kStoreRefused);
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] mod TELMI User failed."));
    EXPECT_EQ(user->name, "old");
}

TEST_F(UsersTest, DelUserChecksLengthsAndPassesStoreCodes) {
    auto user = platform().addUser("u", "dev-1");
    std::vector<int> results = {42};
    EXPECT_EQ(ZQ_TELMIMgrBus_DelUser(results, {"", std::string(37, 'i'), user->index, user->index.substr(0, 35)}), 0);
    EXPECT_THAT(results, ElementsAre(42, 1, 1, 0, kStoreNotFound));
    EXPECT_THAT(platform().users, IsEmpty());
    EXPECT_THAT(platform().logs, IsEmpty());
}

TEST_F(UsersTest, UnterminatedHostFieldsAreNotReadPastTheirWidth) {
    platform().addDevice("dev-1", 2, "CAM1");
    auto user = platform().addUser("old", "dev-1");
    // One record in its own heap block with no NUL anywhere: reading past a field shows under ASan.
    std::vector<tagTELMIUserInput> inputs(1);
    std::memset(inputs.data(), 'a', sizeof(tagTELMIUserInput));
    std::vector<ZQDeviceMgr::tagAddUserRet> results;
    ZQ_TELMIMgrBus_AddUser(results, inputs);
    EXPECT_THAT(codesOf(results), ElementsAre(1));
    EXPECT_EQ(ZQ_TELMIMgrBus_ModUser(user->index, inputs[0]), 1);

    // A valid name and password, and a device ID filling its field.
    auto& input = inputs[0];
    input = userInput("name", "pw", "");
    std::memset(input.deviceID, 'd', sizeof(input.deviceID));
    ZQ_TELMIMgrBus_AddUser(results, inputs);
    EXPECT_THAT(codesOf(results), ElementsAre(1, 1));
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] CheckBoundDevice failed 1"));
    EXPECT_EQ(ZQ_TELMIMgrBus_ModUser(user->index, input), 1);

    platform().addDevice("dev-2", 2, "CAM2");
    input = userInput("name", "", "CAM2");
    std::memset(input.password, 'p', sizeof(input.password));
    ZQ_TELMIMgrBus_AddUser(results, inputs);
    EXPECT_THAT(codesOf(results), ElementsAre(1, 1, 1));
}
