#include <cstring>

#include "frame/CInstanceMgr.h"
#include "frame/DeviceAccessId.h"
#include "frame/FieldText.h"
#include "frame/Log.h"
#include "frame/ResultCode.h"
#include "users/DeviceQuery.h"
#include "users/UserInputRules.h"

namespace ZQTELMIMgrBus {

namespace {
constexpr int32_t kQuickQueryMaxDevices = 500;
constexpr uint8_t kQuickDevKind = 6;
constexpr uint8_t kQuickDevFilter = 1;
constexpr std::size_t kMaxDigestLength = 64;
}  // namespace

int CInstanceMgr::quickAddUser(std::vector<ZQDeviceMgr::tagAddUserRet>& results, const std::string& password) {
    if (!isNonEmptyWithin(password, kMaxPasswordLength)) {
        return kBadArgument;
    }
    ZQ_LOG(kLogDetail, "getQuickUserInfo start");
    std::vector<ZQDeviceMgr::tagTELMIUser> accounts;
    const int built = getQuickUserInfo(accounts, password);
    if (built != kOk) {
        ZQ_LOG(kLogError, "getQuickUserInfo failed.");
        return built;
    }
    ZQ_LOG(kLogDetail, "getQuickUserInfo stop");
    return ZQ_DeviceMgr_QuickAddTELMIUser(results, accounts);
}

// One account per Tarn or Tarn5 device, named after its access ID. The shared password is rated
// against each name, so devices whose name it does not suit simply get no account; whether a
// device is already bound is left to the query filter and the store.
int CInstanceMgr::getQuickUserInfo(std::vector<ZQDeviceMgr::tagTELMIUser>& users, const std::string& password) {
    std::vector<std::shared_ptr<ZQDeviceMgr::CKelDevice>> devices;
    const int queried = queryDevices(devices, kQuickQueryMaxDevices, "", kQuickDevKind, kQuickDevFilter);
    if (queried != kOk) {
        ZQ_LOG(kLogError, "ZQ_DeviceMgrBus_QueryDeviceList failed.");
        return queried;
    }
    for (const auto& device : devices) {
        const auto accessId = accessIdOf(*device);
        if (!accessId) {
            continue;
        }
        ZQDeviceMgr::tagTELMIUser account;
        std::memset(&account, 0, sizeof(account));
        copyField(account.userName, *accessId, kMaxUserNameLength);
        copyField(account.deviceIndex, device->getDeviceIndex(), kStoreIndexLength);
        std::string digestHA1;
        if (checkPassword(digestHA1, password, fieldText(account.userName)) != kOk) {
            ZQ_LOG(kLogWarn, "checkPassword failed.");
            continue;
        }
        copyField(account.digestHA1, digestHA1, kMaxDigestLength);
        users.push_back(account);
    }
    if (users.empty()) {
        ZQ_LOG(kLogError, "The number of encoding devices is 0.");
        return kNotFound;
    }
    return kOk;
}

}  // namespace ZQTELMIMgrBus
