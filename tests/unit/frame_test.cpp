#include <atomic>
#include <cstddef>
#include <thread>

#include "LibraryTest.h"

// The host and the stores exchange these records by reference: their layouts are part of the interface.
static_assert(sizeof(tagTELMIUserInput) == 85 && offsetof(tagTELMIUserInput, password) == 34 &&
              offsetof(tagTELMIUserInput, deviceID) == 52);
static_assert(sizeof(ZQDeviceMgr::tagTELMIUser) == 138 && offsetof(ZQDeviceMgr::tagTELMIUser, digestHA1) == 34 &&
              offsetof(ZQDeviceMgr::tagTELMIUser, deviceIndex) == 100);
static_assert(sizeof(ZQDeviceMgr::tagTELMIPort) == 44 && offsetof(ZQDeviceMgr::tagTELMIPort, spare) == 2 &&
              offsetof(ZQDeviceMgr::tagTELMIPort, rtspPort) == 4 &&
              offsetof(ZQDeviceMgr::tagTELMIPort, deviceIndex) == 6);
static_assert(offsetof(MediaPortInfo, rtspPortBind) == 40 && offsetof(MediaPortInfo, rtspPort) == 44 &&
              sizeof(MediaPortInfo) == 48);
static_assert(offsetof(tagTelmiQueryReq, keyWord) == 8 && sizeof(tagTelmiQueryReq::keyWord) == 129 &&
              sizeof(tagTelmiQueryRsp) == 8 && offsetof(tagTelmiQueryRsp, totalMatches) == 4);
static_assert(offsetof(tagTELMIAuthReq, lockKey) == 2 && offsetof(tagTELMIAuthReq, authHeader) == 20 &&
              sizeof(tagTELMIAuthReq::authHeader) == 5121 && offsetof(tagTelmiAuthRsp, challenge) == 8 &&
              offsetof(tagTelmiAuthRsp, deviceIndex) == 5129 && sizeof(tagTelmiAuthRsp::deviceIndex) == 37);
using DevQueryCond = ZQDeviceMgrBus::tagDevQueryCond;
static_assert(offsetof(DevQueryCond, maxNum) == 4 && offsetof(DevQueryCond, keyWord) == 8 &&
              offsetof(DevQueryCond, devKind) == 137 && offsetof(DevQueryCond, devFilter) == 139);
static_assert(offsetof(ZQConfigMgr::tagInternalCommunicationInfo, timeout) == 2 &&
              sizeof(ZQConfigMgr::TELMIMode) == 4 && sizeof(ZQDeviceMgr::tagNotifyType) == 4);

namespace {

constexpr int kFirstCallers = 8;

// Construction lasts until every caller has set off, so they all meet the creation under way.
struct CountedConstruction {
    static std::atomic<int> constructions, callers;
    CountedConstruction() {
        ++constructions;
        while (callers < kFirstCallers) {
            std::this_thread::yield();
        }
    }
};
std::atomic<int> CountedConstruction::constructions {0};
std::atomic<int> CountedConstruction::callers {0};

}  // namespace

TEST(SingletonTest, ConcurrentFirstCallsCreateExactlyOneInstance) {
    std::atomic<bool> go {false};
    std::vector<CountedConstruction*> seen(kFirstCallers);
    std::vector<std::thread> threads;
    for (auto& instance : seen) {
        threads.emplace_back([&go, &instance] {
            while (!go) {
            }
            ++CountedConstruction::callers;
            instance = CSingleton<CountedConstruction>::Instance();
        });
    }
    go = true;
    for (auto& t : threads) {
        t.join();
    }
    EXPECT_EQ(CountedConstruction::constructions, 1);
    EXPECT_THAT(seen, ::testing::Each(seen.front()));
}

TEST_F(LibraryTest, SwitchIsReadWithoutStartingAndWrittenOnlyWhenChanged) {
    platform().telmiParam = 1;
    EXPECT_EQ(ZQ_TELMIMgrBus_GetProtocolEnable(), 1);
    EXPECT_EQ(ZQ_TELMIMgrBus_SetProtocolEnable(1), 0);
    EXPECT_THAT(platform().journal, IsEmpty()) << "an unchanged value is not written, and no start attached a callback";

    EXPECT_EQ(ZQ_TELMIMgrBus_SetProtocolEnable(7), 0);
    EXPECT_EQ(ZQ_TELMIMgrBus_GetProtocolEnable(), 7) << "any value is stored as given";

    platform().inject("config.setTELMIParam", 5);
    EXPECT_EQ(ZQ_TELMIMgrBus_SetProtocolEnable(0), 3);
    EXPECT_THAT(platform().journal, ElementsAre("config.setTELMIParam 7", "config.setTELMIParam 0"));
    // Every line names the module, and the member and source line in its prefix.
    ASSERT_EQ(platform().logs.size(), 1u);
    const auto& line = platform().logs.front();
    EXPECT_EQ(std::tie(line.level, line.module, line.format), std::tuple(5, "ZQN", "[%s(%d)] setTELMIParam failed"));
    EXPECT_THAT(line.text, ::testing::MatchesRegex("\\[setProtocolEnable\\([0-9]+\\)\\] setTELMIParam failed"));
}
