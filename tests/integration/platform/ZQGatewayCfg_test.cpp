// libZQGatewayCfg of the reference platform: the gateway's own settings beside the configuration
// the contract (tests/contract) covers.
#include <gtest/gtest.h>

#include <fstream>

#include "GatewayTestHome.h"
#include "StoreRecordText.h"
#include "ZQConfigMgr.h"
#include "ZQGatewayHome.h"

using namespace gwtest;

TEST(ConfigTest, SwitchAndBothAdminsPersistHeldViewsLastAndABrokenFileIsNeverOverwritten) {
    TempHome home;
    inChild(home, [] {
        std::string ha1;
        EXPECT_NE(ZQ_Gateway_Init(""), 0);
        ASSERT_EQ(ZQ_Gateway_Init("Adm1n!pass"), 0);
        EXPECT_EQ(ZQ_Gateway_GetManagerHA1("admin", ha1), ZQGateway::configNoUser) << "two credentials, not one";
        ASSERT_EQ(ZQ_Gateway_SetManagerPassword("admin", "Adm1n!pass"), 0);
        EXPECT_EQ(ZQ_ConfigMgr_GetTELMICfg()->setTELMIParam(1), 0);
    });
    inChild(home, [&home] {
        EXPECT_EQ(ZQ_ConfigMgr_GetTELMICfg()->getTELMIParam(), 1);
        std::string ha1;
        ASSERT_EQ(ZQ_ConfigMgr_GetUserCfg()->getDigestHA1(ha1, "admin"), 0);
        EXPECT_EQ(ha1, md5Of("admin:TELMI:Adm1n!pass"));
        ASSERT_EQ(ZQ_Gateway_GetManagerHA1("admin", ha1), 0);
        EXPECT_EQ(ha1, md5Of("admin:ZQ gateway management:Adm1n!pass")) << "the same password, another realm";

        ZQ_Gateway_HoldSettings(true);
        EXPECT_EQ(ZQ_ConfigMgr_GetTELMICfg()->getTELMIParam(), 1);
        std::ofstream(home.path() + "/gateway.json") << "{ broken";
        EXPECT_EQ(ZQ_ConfigMgr_GetTELMICfg()->getTELMIParam(), 1) << "a held view lasts until released";
        ZQ_Gateway_HoldSettings(false);
        EXPECT_EQ(ZQ_ConfigMgr_GetTELMICfg()->getTELMIParam(), 0) << "released: the file as it is now";
        EXPECT_NE(ZQ_ConfigMgr_GetTELMICfg()->setTELMIParam(0), 0);
        EXPECT_EQ(fileText(home.path() + "/gateway.json"), "{ broken");
    });
}
