#include "frame/CInstanceMgr.h"
#include "frame/DeviceAccessId.h"
#include "frame/FieldText.h"
#include "frame/Log.h"
#include "frame/ResultCode.h"
#include "users/DeviceQuery.h"
#include "users/UserInputRules.h"

namespace ZQTELMIMgrBus {

namespace {

constexpr int32_t kBoundQueryMaxDevices = 10000;

struct DeviceSelection {
    uint8_t devKind;
    uint8_t devFilter;
};

// Which devices the bus is to search: those that may take an account, or a port binding.
DeviceSelection boundQuerySelection(ZQConfigMgr::TELMIMode mode) {
    switch (mode) {
        case ZQConfigMgr::userMode: return {6, 1};
        case ZQConfigMgr::portMode: return {4, 3};
        default: return {0, 0};
    }
}

}  // namespace

// The first device whose access ID matches decides. A Tarn device is tested for an account in
// every mode, a Tarn5 device for what the mode binds. On 1026 deviceIndex is still set: a
// modification may keep the device its account already has.
int CInstanceMgr::checkBoundDevice(std::string& deviceIndex, const std::string& deviceID, ZQConfigMgr::TELMIMode mode) {
    if (!isNonEmptyWithin(deviceID, kMaxDeviceIdLength)) {
        ZQ_LOG(kLogError, "CheckBoundDevice failed 1");
        return kBadArgument;
    }
    std::vector<std::shared_ptr<ZQDeviceMgr::CKelDevice>> devices;
    const DeviceSelection selection = boundQuerySelection(mode);
    const int queried = queryDevices(devices, kBoundQueryMaxDevices, deviceID, selection.devKind, selection.devFilter);
    if (queried != kOk) {
        ZQ_LOG(kLogError, "ZQ_DeviceMgrBus_QueryDeviceList failed.");
        return queried;
    }
    int outcome = kOk;
    for (const auto& device : devices) {
        const auto accessId = accessIdOf(*device);
        if (!accessId || *accessId != deviceID) {
            continue;
        }
        if (device->getProtocol() == kProtocolTarn) {
            if (device->getTELMIBoundStatus() != 0) {
                ZQ_LOG(kLogError, "CheckBoundDevice failed 2");
                outcome = kDeviceBound;
            }
        } else if (mode == ZQConfigMgr::userMode) {
            if (device->getTELMIBoundStatus() != 0) {
                ZQ_LOG(kLogError, "CheckBoundDevice failed 3");
                outcome = kDeviceBound;
            }
        } else if (mode == ZQConfigMgr::portMode) {
            if (device->getTELMIPortBoundStatus() != 0) {
                ZQ_LOG(kLogError, "CheckBoundDevice failed 4");
                outcome = kDeviceBound;
            }
        }
        deviceIndex = device->getDeviceIndex();
        break;
    }
    if (outcome == kOk && deviceIndex.empty()) {
        ZQ_LOG(kLogError, "CheckBoundDevice failed 5");
        return kDeviceMissing;
    }
    return outcome;
}

}  // namespace ZQTELMIMgrBus
