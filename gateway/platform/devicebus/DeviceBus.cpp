// Device queries by condition.
//
// devKind is a mask of protocol values: a device qualifies when (devKind & protocol) != 0, so
// 2 = Tarn, 4 = Tarn5, 6 = Tarn and Tarn5; 0 = any protocol.
// devFilter is a mask of what the gateway must be able to reach: bit 0 (1) a TELMI address,
// bit 1 (2) an RTSP address; 0 = no requirement. So user accounts (6, 1) go to Tarn and Tarn5
// devices whose TELMI interface the gateway reaches, port bindings (4, 3) to Tarn5 devices it
// reaches over TELMI and RTSP.
// Without a key word, a query for devices reachable over TELMI (bit 0) asks which devices may
// get a new account (quick users): devices that have a TELMI user already are left out. With a
// key word the one device is found whatever it has, so that its caller can tell "already bound"
// from "unknown".
// keyWord, when not empty, must equal the device's access ID (the Tarn ID of a Tarn device,
// the Tarn5 ID of a Tarn5 device, either for other protocols).
// startIndex matches are skipped; at most maxNum devices are appended, in the store's order.
// total is set to the number of matches, count to the number appended.
#include <cstring>

#include "ZQDeviceMgrBus.h"
#include "ZQGatewayDevices.h"

namespace {

bool matches(const ZQGateway::CGatewayDevice& record, const ZQDeviceMgrBus::tagDevQueryCond& cond,
             const std::string& keyWord) {
    const ZQGateway::tagDeviceInfo& device = record.getInfo();
    if (cond.devKind != 0 && (cond.devKind & device.protocol) == 0) {
        return false;
    }
    if (((cond.devFilter & 1) != 0 && device.telmiAddress.empty()) ||
        ((cond.devFilter & 2) != 0 && device.rtspAddress.empty())) {
        return false;
    }
    if (keyWord.empty()) {
        return (cond.devFilter & 1) == 0 || record.getTELMIBoundStatus() == 0;
    }
    switch (device.protocol) {
        case 2: return device.tarnDeviceID == keyWord;
        case 4: return device.tarn5DeviceID == keyWord;
        default: return device.tarnDeviceID == keyWord || device.tarn5DeviceID == keyWord;
    }
}

}  // namespace

int ZQ_DeviceMgrBus_QueryDeviceList(std::vector<std::shared_ptr<ZQDeviceMgr::CKelDevice>>& devices, int& total,
                                    int& count, const ZQDeviceMgrBus::tagDevQueryCond& cond) {
    if (cond.startIndex < 0 || cond.maxNum < 0) {
        return ZQGateway::storeBadArgument;
    }
    const std::string keyWord(cond.keyWord, strnlen(cond.keyWord, sizeof(cond.keyWord)));
    std::vector<std::shared_ptr<ZQGateway::CGatewayDevice>> all;
    if (int result = ZQ_DeviceMgr_GetAllDevices(all); result != 0) {
        return result;
    }
    total = 0;
    count = 0;
    for (const auto& device : all) {
        if (!matches(*device, cond, keyWord)) {
            continue;
        }
        if (total++ >= cond.startIndex && count < cond.maxNum) {
            devices.push_back(device);
            ++count;
        }
    }
    return 0;
}
