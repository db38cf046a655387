#include "LibraryTest.h"

namespace {

using AddResults = std::vector<ZQDeviceMgr::tagAddUserRet>;
// RFC 2617's worked example: Mufasa, "Circle Of Life", realm testrealm@host.com.
const std::string kMufasaHA1 = "939e7578ed9e3c518a452acee763bce9";

tagTELMIUserInput userInput(const std::string& name, const std::string& password, const std::string& deviceID) {
    tagTELMIUserInput input;
    setField(input.userName, name);
    setField(input.password, password);
    setField(input.deviceID, deviceID);
    return input;
}

std::vector<int> codesOf(const AddResults& results) { return eachOf(results, &ZQDeviceMgr::tagAddUserRet::result); }

class UsersTest : public LibraryTest {
protected:
    // Adds one account for a fresh Tarn device and returns its code.
    int addOne(const std::string& name, const std::string& password = "Str0ng!pass") {
        const std::string id = "ID" + std::to_string(++devices_);
        platform().addDevice("dev-" + id, 2, id);
        AddResults results;
        ZQ_TELMIMgrBus_AddUser(results, {userInput(name, password, id)});
        return results.size() == 1 ? results[0].result : -999;
    }

    int checkBound(std::string& deviceIndex, const std::string& id, int mode) {
        deviceIndex.clear();
        return mgr().checkBoundDevice(deviceIndex, id, static_cast<ZQConfigMgr::TELMIMode>(mode));
    }

    int devices_ = 0;
};

TEST_F(UsersTest, AddUserAppendsOneOutcomePerInputInOrderAndGoesOnPastFailures) {
    platform().addDevice("dev-1", 2, "CAM1");
    platform().addDevice("dev-3", 4, "CAM3");
    AddResults results(1);
    results[0].result = 42;
    EXPECT_EQ(ZQ_TELMIMgrBus_AddUser(results, {}), 0);

    // Refused by the store, a bad name, added, its device now bound, an unknown device, added.
    platform().inject("store.AddTELMIUser", fake::kStoreRefused);
    EXPECT_EQ(ZQ_TELMIMgrBus_AddUser(results, {userInput("first", "pw1", "CAM1"), userInput("admin", "pw2", "CAM1"),
                                               userInput("third", "pw3", "CAM3"), userInput("fourth", "pw4", "CAM3"),
                                               userInput("fifth", "pw5", "NOSUCH"), userInput("sixth", "pw6", "CAM1")}),
              0);
    EXPECT_THAT(codesOf(results), ElementsAre(42, fake::kStoreRefused, 1, 0, 1026, 7, 0));
    EXPECT_TRUE(!results[1].user && !results[2].user && results[3].user);
    EXPECT_THAT(messagesAt(5), ElementsAre("addUser failed.", "CheckBoundDevice failed 3", "checkBoundDevice failed.",
                                           "CheckBoundDevice failed 5", "checkBoundDevice failed."));
    const std::string start = "checkBoundDevice start", stop = "checkBoundDevice stop";
    EXPECT_THAT(messagesAt(2), ElementsAre(start, stop, start, stop, start, start, start, stop));
}

TEST_F(UsersTest, NamesOutsideTheRulesAreRefusedWithoutLogOrQuery) {
    for (const std::string& bad : {std::string(33, 'n'), std::string(), std::string("admin"),
                                   std::string("caf\xc3\xa9"), std::string("tab\tname"), std::string("a|b")}) {
        EXPECT_EQ(addOne(bad), 1) << bad;
    }
    EXPECT_THAT(platform().deviceQueries, IsEmpty());
    EXPECT_THAT(platform().logs, IsEmpty());
    for (const std::string& good : {std::string(32, 'n'), std::string("Admin"), std::string("admin "),
                                    std::string("administrator"), std::string("inner space"), std::string("del\x7f")}) {
        EXPECT_EQ(addOne(good), 0) << good;
    }

    // Bytes count as signed: 0x80 and up are refused with the controls and the eleven; space and DEL pass.
    for (int byte = 0; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        const bool forbidden = byte < 0x20 || byte >= 0x80 || std::strchr("/\\:*?'\"<>|%", byte) != nullptr;
        EXPECT_EQ(mgr().checkNameChar(&c, 1), forbidden ? 0 : 1) << byte;
    }
    EXPECT_EQ(mgr().checkNameChar("ab/", 2), 1);  // only the first len bytes count
    EXPECT_EQ(mgr().checkNameChar("", 0), 1);
}

TEST_F(UsersTest, PasswordLengthStrengthAndDigest) {
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
    for (auto [given, expected] : {std::pair {-1, 256}, {0, 257}, {-2, 0}, {3, 0}}) {
        level = given;
        EXPECT_EQ(addOne("user" + std::to_string(given), "pw"), expected) << given;
    }
    EXPECT_THAT(rated, ElementsAre("pw/user-1", "pw/user0", "pw/user-2", "pw/user3"));

    // The stored digest is the HA1 of RFC 2617 over the gateway's realm.
    platform().realm = "testrealm@host.com";
    platform().passwordLevel = nullptr;
    EXPECT_EQ(addOne("Mufasa", "Circle Of Life"), 0);
    EXPECT_EQ(platform().users.back()->digest, kMufasaHA1);

    std::string ha1;
    EXPECT_EQ(mgr().checkPassword(ha1, "pw", std::string(33, 'u')), 1);
    EXPECT_EQ(mgr().checkPassword(ha1, "pw", ""), 1);
    // The whole realm goes into the HA1, up to the longest a challenge carries; a longer one
    // would make accounts no client could log in to, so none is made.
    platform().realm = std::string(kMaxRealmLength, 'r');
    EXPECT_EQ(mgr().checkPassword(ha1, "pw", "u"), 0);
    EXPECT_EQ(ha1, md5Of("u:" + platform().realm + ":pw"));
    platform().realm += 'r';
    EXPECT_EQ(mgr().checkPassword(ha1, "pw", "u"), 9);
    EXPECT_EQ(lastLog(5), "[realm length=5006]The realm is too long for a challenge.");
    platform().userCfgPresent = false;
    EXPECT_EQ(mgr().checkPassword(ha1, "Circle Of Life", "Mufasa"), 9);
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] ZQ_ConfigMgr_GetUserCfg failed."));
}

TEST_F(UsersTest, DeviceQueriesCarryTheConditionOfEachUse) {
    std::string index;
    EXPECT_EQ(checkBound(index, std::string(32, 'x'), 1), 1);
    EXPECT_EQ(checkBound(index, "", 1), 1);
    EXPECT_THAT(platform().deviceQueries, IsEmpty());
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] CheckBoundDevice failed 1"));

    const std::string id31(31, 'x');
    for (int mode : {1, 2, 0}) {
        EXPECT_EQ(checkBound(index, id31, mode), 7);
    }
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] CheckBoundDevice failed 5"));
    AddResults results;
    ZQ_TELMIMgrBus_QuickAddUser(results, "secret");

    const std::tuple<int32_t, std::string, uint8_t, uint8_t> expected[] = {
        {10000, id31, 6, 1}, {10000, id31, 4, 3}, {10000, id31, 0, 0}, {500, "", 6, 1}};
    ASSERT_EQ(platform().deviceQueries.size(), 4u);
    for (size_t i = 0; i < 4; ++i) {
        ZQDeviceMgrBus::tagDevQueryCond cond {};  // what the library does not set reaches the bus as zeros
        std::tie(cond.maxNum, std::ignore, cond.devKind, cond.devFilter) = expected[i];
        setField(cond.keyWord, std::get<1>(expected[i]));
        EXPECT_EQ(std::memcmp(&cond, &platform().deviceQueries[i], sizeof(cond)), 0) << "query " << i;
    }

    platform().inject("bus.QueryDeviceList", fake::kStoreRefused);
    EXPECT_EQ(checkBound(index, "ANY", 1), fake::kStoreRefused);
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] ZQ_DeviceMgrBus_QueryDeviceList failed."));
}

TEST_F(UsersTest, CheckBoundDeviceFindsTheDeviceAndTestsItsBoundStatePerProtocolAndMode) {
    // Tarn devices are tested for an account in every mode, Tarn5 devices for what the mode binds.
    // (protocol, bound by an account, bound by a binding, mode, result, the failure logged)
    const std::tuple<uint8_t, int, int, int, int, const char*> cases[] = {
        {2, 1, 0, 2, 1026, "2"},  {2, 0, 1, 2, 0, nullptr}, {4, 1, 0, 2, 0, nullptr}, {4, 1, 0, 1, 1026, "3"},
        {4, 0, 1, 1, 0, nullptr}, {4, 0, 1, 2, 1026, "4"},  {4, 1, 1, 3, 0, nullptr}};
    for (auto [protocol, accountBound, portBound, mode, expected, log] : cases) {
        platform().reset();
        platform().addDevice("dev", protocol, "ID");
        platform().addUser("u", accountBound ? "dev" : "other");
        platform().addPort(portBound ? "dev" : "other", 1, 2);
        std::string index;
        EXPECT_EQ(checkBound(index, "ID", mode), expected) << int(protocol) << " in mode " << mode;
        EXPECT_EQ(index, "dev") << "set, bound or not";
        if (log != nullptr) {
            EXPECT_TRUE(platform().logged(5, std::string("[%s(%d)] CheckBoundDevice failed ") + log));
        }
    }

    // Only the protocol's own ID matches, exactly, and the first matching device decides.
    platform().reset();
    platform().addDevice("dev-o", 3, "")->tarnId = "SHARED";
    platform().addDevice("dev-w", 2, "")->tarn5Id = "SHARED";  // a Tarn device is known by its Tarn ID only
    std::string index;
    EXPECT_EQ(checkBound(index, "SHARED", 1), 7);

    platform().addDevice("dev-a", 4, "TWIN");
    platform().addDevice("dev-b", 4, "TWIN");
    platform().addUser("u", "dev-a");
    EXPECT_EQ(checkBound(index, "TWIN", 1), 1026);
    EXPECT_EQ(index, "dev-a");
    EXPECT_EQ(checkBound(index, "twin", 1), 7) << "the bus ignores case, the library does not";

    // A bound device the store gives no index is still reported bound, not missing.
    platform().addDevice("", 2, "NOINDEX");
    platform().addUser("holder", "");
    platform().logs.clear();
    EXPECT_EQ(checkBound(index, "NOINDEX", 1), 1026);
    EXPECT_FALSE(platform().logged(5, "[%s(%d)] CheckBoundDevice failed 5"));
}

TEST_F(UsersTest, QuickAddUserNamesAccountsAfterAccessIdsOrFails) {
    const std::string longId(40, 'L');
    platform().addDevice("dev-t", 2, "TARN");
    platform().addDevice("dev-x", 7, "OTHER");
    platform().addDevice("dev-5", 4, "TARN5");
    platform().addDevice("dev-l", 2, longId);
    platform().addDevice("dev-r", 4, "REFUSED");
    platform().passwordLevel = [](const std::string&, const std::string& user) { return user == "REFUSED" ? 0 : 3; };
    AddResults results(1);

    EXPECT_EQ(ZQ_TELMIMgrBus_QuickAddUser(results, "secret"), 0);
    EXPECT_EQ(results.size(), 4u) << "the store appends to the caller's list";
    const auto made = [](const auto& u) {
        return u->name + "@" + u->deviceIndex + " HA1 of " + std::to_string(u->digest.size());
    };
    EXPECT_THAT(eachOf(platform().users, made), ElementsAre("TARN@dev-t HA1 of 32", "TARN5@dev-5 HA1 of 32",
                                                            longId.substr(0, 32) + "@dev-l HA1 of 32"));
    EXPECT_TRUE(platform().logged(4, "[%s(%d)] checkPassword failed."));
    EXPECT_THAT(messagesAt(2), ElementsAre("getQuickUserInfo start", "getQuickUserInfo stop"));

    platform().reset();
    results.clear();
    EXPECT_EQ(ZQ_TELMIMgrBus_QuickAddUser(results, ""), 1);
    EXPECT_EQ(ZQ_TELMIMgrBus_QuickAddUser(results, std::string(17, 'p')), 1);
    EXPECT_THAT(platform().deviceQueries, IsEmpty());

    platform().addDevice("dev-t", 2, "TARN");
    platform().passwordLevel = [](const std::string&, const std::string&) { return 0; };
    EXPECT_EQ(ZQ_TELMIMgrBus_QuickAddUser(results, std::string(16, 'p')), 274) << "the password suits no device";
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] The number of encoding devices is 0."));
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] getQuickUserInfo failed."));
    EXPECT_THAT(platform().journalWith("store.QuickAddTELMIUser"), IsEmpty());

    platform().passwordLevel = nullptr;
    platform().inject("bus.QueryDeviceList", fake::kStoreRefused);
    EXPECT_EQ(ZQ_TELMIMgrBus_QuickAddUser(results, "secret"), fake::kStoreRefused);
    platform().inject("store.QuickAddTELMIUser", fake::kStoreNotFound);
    EXPECT_EQ(ZQ_TELMIMgrBus_QuickAddUser(results, "secret"), fake::kStoreNotFound);
    EXPECT_THAT(results, IsEmpty());
}

TEST_F(UsersTest, ModUserKeepsItsOwnDeviceButTakesNoOtherBoundOneAndChecksInOrder) {
    platform().realm = "testrealm@host.com";
    platform().addDevice("dev-1", 2, "CAM1");
    platform().addDevice("dev-2", 4, "CAM2");
    platform().addDevice("dev-3", 2, "CAM3");
    auto own = platform().addUser("old", "dev-1", "oldha1");
    platform().addUser("other", "dev-2");

    EXPECT_EQ(ZQ_TELMIMgrBus_ModUser(own->index, userInput("Mufasa", "Circle Of Life", "CAM1")), 0);
    EXPECT_TRUE(platform().logged(4, "[%s(%d)] checkBoundDevice failed."));
    EXPECT_THAT(platform().journalWith("store.ModifyTELMIUser"),
                ElementsAre("store.ModifyTELMIUser " + own->index + " Mufasa dev=dev-1 ha1=" + kMufasaHA1));

    EXPECT_EQ(ZQ_TELMIMgrBus_ModUser(own->index, userInput("u", "pw", "CAM2")), 1026);
    EXPECT_EQ(ZQ_TELMIMgrBus_ModUser(own->index, userInput("u", "pw", "NOPE")), 7);
    EXPECT_EQ(ZQ_TELMIMgrBus_ModUser(own->index, userInput("u", "pw", "CAM3")), 0);
    EXPECT_EQ(own->deviceIndex, "dev-3");
    EXPECT_EQ(platform().journalWith("store.ModifyTELMIUser").size(), 2u) << "refusals leave the store alone";

    // Inputs first, then the account, then the device, the password and the store.
    platform().logs.clear();
    platform().deviceQueries.clear();
    for (const auto& bad : {userInput("admin", "pw", "CAM1"), userInput("name", "pw", std::string(32, 'd')),
                            userInput("name", std::string(17, 'p'), "CAM1"), userInput("name", "", "CAM1")}) {
        EXPECT_EQ(mgr().modUser(own->index, bad), 1);
    }
    const auto good = userInput("name", "pw", "CAM3");
    EXPECT_EQ(mgr().modUser(own->index.substr(0, 35), good), 1);
    EXPECT_EQ(mgr().modUser(std::string(36, 'z'), good), 1) << "an unknown account is a bad argument, not 7";
    EXPECT_THAT(platform().deviceQueries, IsEmpty());
    EXPECT_THAT(platform().logs, IsEmpty());

    platform().passwordLevel = [](const std::string&, const std::string&) { return 0; };
    EXPECT_EQ(mgr().modUser(own->index, good), 257);
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] checkPassword failed"));
    platform().passwordLevel = nullptr;
    platform().inject("store.ModifyTELMIUser", fake::kStoreRefused);
    EXPECT_EQ(mgr().modUser(own->index, good), fake::kStoreRefused);
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] mod TELMI User failed."));
}

TEST_F(UsersTest, DelUserChecksLengthsAndPassesStoreCodes) {
    auto user = platform().addUser("u", "dev-1");
    std::vector<int> results = {42};
    EXPECT_EQ(ZQ_TELMIMgrBus_DelUser(results, {"", std::string(37, 'i'), user->index, user->index.substr(0, 35)}), 0);
    EXPECT_THAT(results, ElementsAre(42, 1, 1, 0, fake::kStoreNotFound));
    EXPECT_THAT(platform().users, IsEmpty());
    EXPECT_THAT(platform().logs, IsEmpty());
}

TEST_F(UsersTest, UnterminatedHostFieldsAreNotReadPastTheirWidth) {
    platform().addDevice("dev-1", 2, "CAM1");
    platform().addDevice("dev-2", 2, "CAM2");
    auto user = platform().addUser("old", "dev-1");
    // One record in its own heap block with no NUL anywhere: reading past a field shows under ASan.
    std::vector<tagTELMIUserInput> inputs(1);
    auto& input = inputs[0];
    std::memset(&input, 'a', sizeof(input));
    AddResults results;
    ZQ_TELMIMgrBus_AddUser(results, inputs);
    EXPECT_EQ(ZQ_TELMIMgrBus_ModUser(user->index, input), 1);

    input = userInput("name", "pw", std::string(sizeof(input.deviceID), 'd'));  // a valid name and password
    ZQ_TELMIMgrBus_AddUser(results, inputs);
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] CheckBoundDevice failed 1"));
    EXPECT_EQ(ZQ_TELMIMgrBus_ModUser(user->index, input), 1);

    input = userInput("name", std::string(sizeof(input.password), 'p'), "CAM2");
    ZQ_TELMIMgrBus_AddUser(results, inputs);
    EXPECT_THAT(codesOf(results), ElementsAre(1, 1, 1));
}

}  // namespace
