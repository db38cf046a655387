// The device store's interface functions, each one call into the process's store.
#include <utility>

#include "ZQDeviceMgr.h"
#include "ZQGatewayDevices.h"
#include "ZQGatewayHome.h"
#include "devices/DeviceAddressRule.h"
#include "devices/DeviceStore.h"

using zqgw::DeviceStore;

namespace {
DeviceStore& store() { return DeviceStore::instance(); }
thread_local std::vector<ZQDeviceMgr::tagTELMIUser> lastQuickAddRequests;
}  // namespace

int ZQ_DeviceMgr_AddTELMIUser(std::shared_ptr<ZQDeviceMgr::CTELMIUser>& user, const ZQDeviceMgr::tagTELMIUser& rec) {
    return store().addUser(user, rec);
}

int ZQ_DeviceMgr_QuickAddTELMIUser(std::vector<ZQDeviceMgr::tagAddUserRet>& rets,
                                   const std::vector<ZQDeviceMgr::tagTELMIUser>& recs) {
    lastQuickAddRequests = recs;
    for (const auto& rec : recs) {
        ZQDeviceMgr::tagAddUserRet ret;
        ret.result = store().addUser(ret.user, rec);
        rets.push_back(ret);
    }
    return 0;
}

int ZQ_DeviceMgr_ModifyTELMIUser(const std::string& userIndex, const ZQDeviceMgr::tagTELMIUser& rec) {
    return store().modifyUser(userIndex, rec);
}

int ZQ_DeviceMgr_DelTELMIUser(const std::string& userIndex) { return store().deleteUser(userIndex); }

std::shared_ptr<ZQDeviceMgr::CTELMIUser> ZQ_DeviceMgr_GetTELMIUser(std::string userIndex) {
    return store().user(userIndex);
}

int ZQ_DeviceMgr_GetAllTELMIUser(std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIUser>>& users) {
    return store().allUsers(users);
}

int ZQ_DeviceMgr_BindTELMIPort(std::shared_ptr<ZQDeviceMgr::CTELMIPort>& port, const ZQDeviceMgr::tagTELMIPort& rec) {
    return store().bind(port, rec);
}

int ZQ_DeviceMgr_UnbindTELMIPort(const std::string& portIndex) { return store().unbind(portIndex); }

int ZQ_DeviceMgr_GetTELMIPort(std::shared_ptr<ZQDeviceMgr::CTELMIPort>& port, const std::string& portIndex) {
    auto found = store().port(portIndex);
    if (!found) {
        return ZQGateway::storeNotFound;
    }
    port = found;
    return 0;
}

int ZQ_DeviceMgr_GetAllTELMIPort(std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>>& ports) {
    return store().allPorts(ports);
}

std::shared_ptr<ZQDeviceMgr::CKelDevice> ZQ_DeviceMgr_GetDevice(std::string deviceIndex) {
    return store().device(deviceIndex);
}

int ZQ_DeviceMgr_NotifyAttach(ZQDeviceMgr::DevChangeCallback callback, void* context) {
    if (callback == nullptr) {
        return ZQGateway::storeBadArgument;
    }
    store().notifier().attach(callback, context);
    return 0;
}

int ZQ_DeviceMgr_NotifyDetach(ZQDeviceMgr::DevChangeCallback callback) {
    return store().notifier().detach(callback) ? 0 : ZQGateway::storeNotFound;
}

int ZQ_DeviceMgr_RegisterDevice(std::string& deviceIndex, const ZQGateway::tagDeviceInfo& info) {
    return store().registerDevice(deviceIndex, info);
}

int ZQ_DeviceMgr_RemoveDevice(const std::string& deviceIndex) { return store().removeDevice(deviceIndex); }

int ZQ_DeviceMgr_GetAllDevices(std::vector<std::shared_ptr<ZQGateway::CGatewayDevice>>& devices) {
    return store().allDevices(devices);
}

int ZQ_DeviceMgr_ReservePort(unsigned short& port, unsigned short first, unsigned short last,
                             bool (*inUse)(unsigned short port)) {
    return store().reservePort(port, first, last, inUse);
}

bool ZQ_DeviceMgr_ParseDeviceAddress(const std::string& address, uint16_t defaultPort,
                                     ZQGateway::tagDeviceEndpoint& endpoint) {
    return zqgw::parseDeviceAddress(address, defaultPort, endpoint);
}

int ZQ_DeviceMgr_CheckDeviceAddress(const std::string& address, uint16_t defaultPort, std::string& why) {
    ZQGateway::tagGatewaySettings settings;
    ZQ_Gateway_GetSettings(settings);
    return zqgw::checkDeviceAddress(address, defaultPort, settings, why);
}

int ZQ_DeviceMgr_GetLockouts(std::vector<ZQGateway::tagLockout>& lockouts) {
    lockouts = store().locks().list();
    return 0;
}

int ZQ_DeviceMgr_ClearLockouts(const std::string& recordIndex, const std::string& requester, int& cleared) {
    cleared = store().locks().clear(recordIndex, requester);
    return 0;
}

std::vector<ZQDeviceMgr::tagTELMIUser> ZQ_DeviceMgr_TakeQuickAddRequests() {
    return std::exchange(lastQuickAddRequests, {});
}
