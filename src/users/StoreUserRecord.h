#pragma once

#include <string>

#include "ZQDeviceMgr.h"

namespace ZQTELMIMgrBus {

// The account record handed to the store when adding or modifying one account; zero-filled,
// so every field ends in a NUL.
ZQDeviceMgr::tagTELMIUser makeStoreUserRecord(const std::string& userName, const std::string& digestHA1,
                                              const std::string& deviceIndex);

}  // namespace ZQTELMIMgrBus
