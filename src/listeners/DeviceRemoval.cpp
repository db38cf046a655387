#include "frame/CInstanceMgr.h"

namespace ZQTELMIMgrBus {

// A device that left the gateway loses its account and every binding. Failures are not
// retried: the store has no way to receive them.
void CInstanceMgr::devChangeCB(ZQDeviceMgr::tagNotifyType type, void* deviceIndex, const void* context) {
    if (deviceIndex == nullptr || context == nullptr || type != ZQDeviceMgr::deviceRemoved) {
        return;
    }
    const std::string removed(static_cast<const char*>(deviceIndex));
    // The context is the manager that start registered, handed back as const by the store.
    auto* mgr = const_cast<CInstanceMgr*>(static_cast<const CInstanceMgr*>(context));

    // One account per device is the rule, so the first one found is the device's account.
    std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIUser>> users;
    ZQ_DeviceMgr_GetAllTELMIUser(users);
    for (const auto& user : users) {
        if (user->getDeviceIndex() == removed) {
            ZQ_DeviceMgr_DelTELMIUser(user->getUserIndex());
            break;
        }
    }

    // Each binding is released by its own unbindPort, so binds may run between two of them.
    std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> ports;
    ZQ_DeviceMgr_GetAllTELMIPort(ports);
    for (const auto& port : ports) {
        if (port->getDeviceIndex() == removed) {
            std::vector<int> results;
            mgr->unbindPort(results, {port->getPortIndex()});
        }
    }
}

}  // namespace ZQTELMIMgrBus
