// The contract's preparations on the reference gateway platform, in a temporary gateway home.
#include <gtest/gtest.h>

#include "GatewayTestHome.h"
#include "PlatformSide.h"
#include "ZQGatewayDevices.h"
#include "ZQGatewayHome.h"

namespace contract {

void onFreshPlatform(const std::function<void()>& body) {
    gwtest::TempHome home;
    EXPECT_TRUE(gwtest::inChild(home, body));
}

std::string registerDevice(uint8_t protocol, const std::string& accessId) {
    return gwtest::registerDevice(protocol, accessId);
}

void removeDevice(const std::string& index) { EXPECT_EQ(ZQ_DeviceMgr_RemoveDevice(index), 0); }

void setGatewayAdminPassword(const std::string& password) { EXPECT_EQ(ZQ_Gateway_Init(password.c_str()), 0); }

unsigned short unusedPort() { return gwtest::testPortBlock(1); }

std::shared_ptr<void> listenOn(unsigned short port) {
    auto listener = std::make_shared<gwtest::Listener>(port);
    EXPECT_TRUE(listener->ok());
    return listener;
}

}  // namespace contract
