// The contract's preparations on the unit tests' fake platform.
#include <unistd.h>

#include "FakePlatform.h"
#include "PlatformSide.h"
#include "StoreRecordText.h"

namespace contract {

void onFreshPlatform(const std::function<void()>& body) {
    fake::fakePlatform().reset();
    body();
    fake::fakePlatform().reset();
}

std::string registerDevice(uint8_t protocol, const std::string& accessId) {
    const std::string index = "device-" + accessId;
    fake::fakePlatform().addDevice(index, protocol, accessId);
    return index;
}

void removeDevice(const std::string& index) {
    fake::fakePlatform().removeDevice(index);
    fake::fakePlatform().notify(ZQDeviceMgr::deviceRemoved, index);
}

void setGatewayAdminPassword(const std::string& password) {
    auto lock = fake::lockPlatform();
    fake::fakePlatform().gatewayHA1["admin"] = md5Of("admin:" + fake::fakePlatform().realm + ":" + password);
}

unsigned short unusedPort() { return 41000; }

std::shared_ptr<void> listenOn(unsigned short port) {
    {
        auto lock = fake::lockPlatform();
        fake::fakePlatform().listeners[port] = static_cast<int>(getpid());
    }
    return std::shared_ptr<void>(nullptr, [port](void*) {
        auto lock = fake::lockPlatform();
        fake::fakePlatform().listeners.erase(port);
    });
}

}  // namespace contract
