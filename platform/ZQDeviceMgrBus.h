// Device bus of the gateway (libZQDeviceMgrBus): device queries by condition.
//
// Requirements on an implementation: safe for concurrent calls; appends the matching devices
// to the list, at most maxNum of them; 0 on success, any other value is passed on unchanged.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "ZQDeviceMgr.h"

namespace ZQDeviceMgrBus {

struct tagDevQueryCond {
    int32_t startIndex;  // first match to return; the library leaves it 0
    int32_t maxNum;      // most devices returned
    char keyWord[129];   // access ID to look for; empty means any device
    uint8_t devKind;     // which access protocols qualify (the bus documents the values)
    uint8_t spare1;
    uint8_t devFilter;   // which devices qualify beyond the protocol (the bus documents the values)
    uint8_t spare2[64];  // owned by the bus
};

}  // namespace ZQDeviceMgrBus

int ZQ_DeviceMgrBus_QueryDeviceList(std::vector<std::shared_ptr<ZQDeviceMgr::CKelDevice>>& devices, int& total,
                                    int& count, const ZQDeviceMgrBus::tagDevQueryCond& cond);
