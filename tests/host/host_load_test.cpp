// Loads the shared library the way a gateway host does: dlopen over the platform libraries,
// dlsym of the fourteen entry points, and a call through them end to end.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "FakePlatform.h"

namespace {

const char* const kEntryPoints[] = {
    "ZQ_TELMIMgrBus_Start",        "ZQ_TELMIMgrBus_Stop",          "ZQ_TELMIMgrBus_AddUser",
    "ZQ_TELMIMgrBus_QuickAddUser", "ZQ_TELMIMgrBus_DelUser",       "ZQ_TELMIMgrBus_ModUser",
    "ZQ_TELMIMgrBus_QueryUserList", "ZQ_TELMIMgrBus_GetProtocolEnable", "ZQ_TELMIMgrBus_SetProtocolEnable",
    "ZQ_TELMIMgrBus_CheckDigest",  "ZQ_TELMIMgrBus_BindPort",      "ZQ_TELMIMgrBus_UnbindPort",
    "ZQ_TELMIMgrBus_BindRetry",    "ZQ_TELMIMgrBus_QueryTELMIPortList",
};

}  // namespace

TEST(HostLoadTest, ResolvesEveryEntryPointAndDrivesTheSwitch) {
    void* library = dlopen(ZQ_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    for (const char* name : kEntryPoints) {
        EXPECT_NE(dlsym(library, name), nullptr) << name;
    }
    auto setEnable = reinterpret_cast<int (*)(int)>(dlsym(library, "ZQ_TELMIMgrBus_SetProtocolEnable"));
    auto getEnable = reinterpret_cast<int (*)()>(dlsym(library, "ZQ_TELMIMgrBus_GetProtocolEnable"));
    ASSERT_NE(setEnable, nullptr);
    ASSERT_NE(getEnable, nullptr);

    fake::fakePlatform().telmiParam = 0;
    EXPECT_EQ(setEnable(1), 0);
    EXPECT_EQ(getEnable(), 1);
    EXPECT_EQ(fake::fakePlatform().telmiParam, 1);
    fake::fakePlatform().inject("config.setTELMIParam", 2);
    EXPECT_EQ(setEnable(0), 3);
    EXPECT_TRUE(fake::fakePlatform().logged(5, "[%s(%d)] setTELMIParam failed"));
    EXPECT_EQ(dlclose(library), 0);
}
