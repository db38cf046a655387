// libZQDeviceMgrBus of the reference platform: the device query's kind, filter, key word and limit.
#include <gtest/gtest.h>

#include <cstring>

#include "GatewayTestHome.h"
#include "StoreRecordText.h"
#include "ZQDeviceMgrBus.h"

using namespace gwtest;

TEST(DeviceBusTest, KindFilterKeyWordAndMaxNum) {
    TempHome home;
    inChild(home, [] {
        registerDevice(2, "T1", "");
        const std::string both = registerDevice(4, "T5-both");
        const std::string telmiOnly = registerDevice(4, "T5-telmi", "");
        registerDevice(4, "T5-none", "", "");
        registerDevice(1, "other");
        auto query = [](uint8_t kind, uint8_t filter, const char* keyWord = "", int maxNum = 100) {
            ZQDeviceMgrBus::tagDevQueryCond cond {};
            cond.maxNum = maxNum;
            std::strncpy(cond.keyWord, keyWord, sizeof(cond.keyWord) - 1);
            cond.devKind = kind;
            cond.devFilter = filter;
            std::vector<std::shared_ptr<ZQDeviceMgr::CKelDevice>> devices;
            int total = 0, count = 0;
            EXPECT_EQ(ZQ_DeviceMgrBus_QueryDeviceList(devices, total, count, cond), 0);
            EXPECT_EQ(count, static_cast<int>(devices.size()));
            return devices;
        };
        EXPECT_EQ(query(6, 1).size(), 3u);
        ASSERT_EQ(query(4, 3).size(), 1u);
        EXPECT_EQ(query(4, 3)[0]->getDeviceIndex(), both);
        EXPECT_EQ(query(0, 0).size(), 5u);
        EXPECT_EQ(query(6, 1, "T5-telmi").size(), 1u);
        EXPECT_EQ(query(6, 1, "T5").size(), 0u) << "the key word is a whole access ID";
        EXPECT_EQ(query(6, 0, "", 2).size(), 2u);

        // Quick users go to devices without an account; the key word still finds a bound one.
        std::shared_ptr<ZQDeviceMgr::CTELMIUser> added;
        ASSERT_EQ(ZQ_DeviceMgr_AddTELMIUser(added, userRecord("u", telmiOnly)), 0);
        EXPECT_EQ(query(6, 1).size(), 2u);
        EXPECT_EQ(query(6, 1, "T5-telmi").size(), 1u);
    });
}
