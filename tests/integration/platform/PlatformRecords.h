// What several platform tests build their cases from: an MD5 hex digest as the platform makes it,
// and user and port records for a device.
#pragma once

#include <cstdint>
#include <string>

#include "ZQDeviceMgr.h"

namespace gwtest {

std::string md5Of(const std::string& text);

ZQDeviceMgr::tagTELMIUser userRecord(const std::string& name, const std::string& deviceIndex);

ZQDeviceMgr::tagTELMIPort portRecord(const std::string& deviceIndex, uint16_t http, uint16_t rtsp);

}  // namespace gwtest
