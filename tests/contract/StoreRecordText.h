// Records and digests as the library hands them to the device store, for tests of the platform.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>

#include "ZQBase.h"
#include "ZQDeviceMgr.h"

inline std::string md5Of(const std::string& text) {
    char out[65] = {};
    mprGetMD5Hash(reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()), out);
    return out;
}

inline ZQDeviceMgr::tagTELMIUser userRecord(const std::string& name, const std::string& deviceIndex) {
    ZQDeviceMgr::tagTELMIUser rec{};
    std::strncpy(rec.userName, name.c_str(), sizeof(rec.userName) - 1);
    std::strncpy(rec.digestHA1, md5Of(name).c_str(), sizeof(rec.digestHA1) - 1);
    std::strncpy(rec.deviceIndex, deviceIndex.c_str(), sizeof(rec.deviceIndex) - 1);
    return rec;
}

inline ZQDeviceMgr::tagTELMIPort portRecord(const std::string& deviceIndex, uint16_t http, uint16_t rtsp) {
    ZQDeviceMgr::tagTELMIPort rec;
    rec.httpPort = http;
    rec.rtspPort = rtsp;
    std::strncpy(rec.deviceIndex, deviceIndex.c_str(), sizeof(rec.deviceIndex) - 1);
    return rec;
}
