// Records and Digest texts as the library hands them to the platform, for the unit tests, the
// platform contract and the platform's own tests.
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

// A client's qop=auth answer to the nonce for a GET, computed from the HA1 it believes in.
inline std::string digestAnswer(const std::string& user, const std::string& ha1, const std::string& nonce = "n0") {
    const std::string uri = "/TELMI/System/status", cnonce = "0a4f113b";
    const std::string response = md5Of(ha1 + ":" + nonce + ":00000001:" + cnonce + ":auth:" + md5Of("GET:" + uri));
    return "Digest username=\"" + user + "\", realm=\"TELMI\", nonce=\"" + nonce + "\", uri=\"" + uri +
           "\", qop=auth, nc=00000001, cnonce=\"" + cnonce + "\", response=\"" + response + "\"";
}

inline ZQDeviceMgr::tagTELMIUser userRecord(const std::string& name, const std::string& deviceIndex) {
    ZQDeviceMgr::tagTELMIUser rec {};
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
