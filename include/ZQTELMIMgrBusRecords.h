// Records that cross the TELMI manager bus interface. Their layouts are fixed: the host and the
// gateway stores exchange them by reference, so fields, widths and order must not change.
//
// Widths the host chooses, and this library uses:
//   tagTelmiQueryReq::keyWord      129 bytes (128 characters and the NUL)
//   tagTELMIAuthReq::authHeader   5121 bytes (5120 characters and the NUL)
//   tagTelmiAuthRsp::deviceIndex    37 bytes (36 characters and the NUL)
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>

#include "ZQDeviceMgr.h"

namespace ZQTELMIMgrBus {

// One TELMI user as the host asks for it to be added or changed.
struct tagTELMIUserInput {
    char userName[34];  // at most 32 characters
    char password[18];  // plain text, at most 16 characters
    char deviceID[33];  // Tarn or Tarn5 access ID of the user's device, at most 31 characters
};

// Outcome of binding one device.
struct tagBindPortRet {
    int32_t resultCode;
    std::shared_ptr<ZQDeviceMgr::CTELMIPort> port;  // the stored binding; null until it exists

    tagBindPortRet() : resultCode(0), port() {}
};

// One RTSP listener order for the media module.
struct MediaPortInfo {
    char devIndex[37];
    int32_t rtspPortBind;  // 1 open, 0 close
    uint16_t rtspPort;

    MediaPortInfo() : rtspPortBind(1), rtspPort(0) { std::memset(devIndex, 0, sizeof(devIndex)); }
};

// One page request of the user or port list.
struct tagTelmiQueryReq {
    int32_t startPos;    // matches to skip, 0 to 500
    int32_t maxResults;  // page size, 0 to 500
    char keyWord[129];   // at most 128 characters; empty means no filter
};

struct tagTelmiQueryRsp {
    int32_t numReturned;   // records in the page
    int32_t totalMatches;  // records that matched before paging
};

// One incoming TELMI request to authenticate.
struct tagTELMIAuthReq {
    uint16_t httpPort;      // gateway HTTP port the request arrived on (port mode)
    char lockKey[18];       // identifies the requester for the lock-out
    char authHeader[5121];  // the Authorization header value
};

// Outcome of a Digest check; only the fields the outcome names are written.
struct tagTelmiAuthRsp {
    int32_t leftTryNum;      // attempts left before lock-out; may be negative
    int32_t remainLockTime;  // as the device store reports it
    char challenge[5121];    // WWW-Authenticate value to send back
    char deviceIndex[37];    // device of the authenticated user or port
};

}  // namespace ZQTELMIMgrBus
