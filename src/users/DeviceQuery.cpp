#include "users/DeviceQuery.h"

#include <cstring>

#include "ZQDeviceMgrBus.h"
#include "kmt.h"

namespace ZQTELMIMgrBus {

int queryDevices(std::vector<std::shared_ptr<ZQDeviceMgr::CKelDevice>>& devices, int32_t maxNum,
                 const std::string& keyWord, uint8_t devKind, uint8_t devFilter) {
    // The bus owns the fields we do not set; they must reach it as zeros.
    ZQDeviceMgrBus::tagDevQueryCond cond;
    std::memset(&cond, 0, sizeof(cond));
    cond.maxNum = maxNum;
    KMT_Strncpy(cond.keyWord, keyWord.c_str(), static_cast<int>(sizeof(cond.keyWord)));
    cond.devKind = devKind;
    cond.devFilter = devFilter;
    int total = 0;
    int count = 0;
    return ZQ_DeviceMgrBus_QueryDeviceList(devices, total, count, cond);
}

}  // namespace ZQTELMIMgrBus
