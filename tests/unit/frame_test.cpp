#include <atomic>
#include <cstddef>
#include <thread>
#include <vector>

#include "LibraryTest.h"
#include "ZQDeviceMgrBus.h"

using namespace ZQTELMIMgrBus;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// The host and the stores exchange these records by reference: their layouts are part of the interface.
static_assert(sizeof(tagTELMIUserInput) == 85 && offsetof(tagTELMIUserInput, password) == 34 &&
              offsetof(tagTELMIUserInput, deviceID) == 52);
static_assert(sizeof(ZQDeviceMgr::tagTELMIUser) == 138 && offsetof(ZQDeviceMgr::tagTELMIUser, digestHA1) == 34 &&
              offsetof(ZQDeviceMgr::tagTELMIUser, deviceIndex) == 100);
static_assert(sizeof(ZQDeviceMgr::tagTELMIPort) == 44 && offsetof(ZQDeviceMgr::tagTELMIPort, spare) == 2 &&
              offsetof(ZQDeviceMgr::tagTELMIPort, rtspPort) == 4 && offsetof(ZQDeviceMgr::tagTELMIPort, deviceIndex) == 6);
static_assert(offsetof(MediaPortInfo, rtspPortBind) == 40 && offsetof(MediaPortInfo, rtspPort) == 44 &&
              sizeof(MediaPortInfo) == 48);
static_assert(offsetof(tagTelmiQueryReq, keyWord) == 8 && sizeof(tagTelmiQueryReq::keyWord) == 129);
static_assert(sizeof(tagTelmiQueryRsp) == 8 && offsetof(tagTelmiQueryRsp, totalMatches) == 4);
static_assert(offsetof(tagTELMIAuthReq, lockKey) == 2 && offsetof(tagTELMIAuthReq, authHeader) == 20 &&
              sizeof(tagTELMIAuthReq::authHeader) == 5121);
static_assert(offsetof(tagTelmiAuthRsp, challenge) == 8 && offsetof(tagTelmiAuthRsp, deviceIndex) == 5129 &&
              sizeof(tagTelmiAuthRsp::deviceIndex) == 37);
static_assert(offsetof(ZQDeviceMgrBus::tagDevQueryCond, maxNum) == 4 &&
              offsetof(ZQDeviceMgrBus::tagDevQueryCond, keyWord) == 8 &&
              offsetof(ZQDeviceMgrBus::tagDevQueryCond, devKind) == 137 &&
              offsetof(ZQDeviceMgrBus::tagDevQueryCond, devFilter) == 139);
static_assert(offsetof(ZQConfigMgr::tagInternalCommunicationInfo, timeout) == 2);
static_assert(sizeof(ZQConfigMgr::TELMIMode) == 4 && sizeof(ZQDeviceMgr::tagNotifyType) == 4);

namespace {

struct CountedConstruction {
    static std::atomic<int> constructions;
    CountedConstruction() { ++constructions; }
};
std::atomic<int> CountedConstruction::constructions{0};

}  // namespace

TEST(SingletonTest, ConcurrentFirstCallsCreateExactlyOneInstance) {
    constexpr int kThreads = 8;
    std::atomic<bool> go{false};
    std::vector<CountedConstruction*> seen(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            while (!go) {
            }
            seen[i] = CSingleton<CountedConstruction>::Instance();
        });
    }
    go = true;
    for (auto& t : threads) {
        t.join();
    }
    EXPECT_EQ(CountedConstruction::constructions, 1);
    for (auto* instance : seen) {
        EXPECT_EQ(instance, seen.front());
    }
}

TEST(RecordTest, Defaults) {
    ZQDeviceMgr::tagAddUserRet addRet;
    EXPECT_TRUE(addRet.result == 0 && addRet.user == nullptr);
    tagBindPortRet bindRet;
    EXPECT_TRUE(bindRet.resultCode == 0 && bindRet.port == nullptr);
    MediaPortInfo media;
    EXPECT_TRUE(media.rtspPortBind == 1 && media.rtspPort == 0);
    EXPECT_EQ(std::string(media.devIndex, sizeof(media.devIndex)), std::string(37, '\0'));
    ZQDeviceMgr::tagTELMIPort port;
    const auto* bytes = reinterpret_cast<const unsigned char*>(&port);
    EXPECT_TRUE(std::all_of(bytes, bytes + sizeof(port), [](unsigned char b) { return b == 0; }));
}

TEST_F(LibraryTest, FirstCallReadsTheSwitchWithoutStarting) {
    platform().telmiParam = 1;
    EXPECT_EQ(ZQ_TELMIMgrBus_GetProtocolEnable(), 1);
    EXPECT_EQ(platform().callback, nullptr) << "no start, so no device-change callback";
    EXPECT_THAT(platform().journal, IsEmpty());
}

TEST_F(LibraryTest, SwitchWritesOnlyChangedValuesAndReportsRefusal) {
    platform().telmiParam = 1;
    EXPECT_EQ(ZQ_TELMIMgrBus_SetProtocolEnable(1), 0);
    EXPECT_THAT(platform().journalWith("config."), IsEmpty()) << "an unchanged value is not written";

    EXPECT_EQ(ZQ_TELMIMgrBus_SetProtocolEnable(7), 0);
    EXPECT_EQ(ZQ_TELMIMgrBus_GetProtocolEnable(), 7) << "any value is stored as given";

    platform().setTELMIParamResult = 5;
    EXPECT_EQ(ZQ_TELMIMgrBus_SetProtocolEnable(0), 3);
    EXPECT_THAT(platform().journalWith("config."), ElementsAre("config.setTELMIParam 7", "config.setTELMIParam 0"));
    // Every line names the module, and the member and source line in its prefix.
    ASSERT_EQ(platform().logs.size(), 1u);
    const auto& line = platform().logs.front();
    EXPECT_EQ(line.level, 5);
    EXPECT_EQ(line.module, "ZQN");
    EXPECT_EQ(line.format, "[%s(%d)] setTELMIParam failed");
    EXPECT_THAT(line.text, ::testing::MatchesRegex("\\[setProtocolEnable\\([0-9]+\\)\\] setTELMIParam failed"));
}
