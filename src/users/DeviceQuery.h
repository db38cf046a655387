#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ZQDeviceMgr.h"

namespace ZQTELMIMgrBus {

// Asks the device bus for at most maxNum devices of the given kind and filter whose access ID
// is keyWord (any device when empty). Callers pass access IDs of at most 31 characters, so the
// key word always ends inside the condition's 129-byte field. Returns the bus's code unchanged.
int queryDevices(std::vector<std::shared_ptr<ZQDeviceMgr::CKelDevice>>& devices, int32_t maxNum,
                 const std::string& keyWord, uint8_t devKind, uint8_t devFilter);

}  // namespace ZQTELMIMgrBus
