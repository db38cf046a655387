#pragma once

#include <cstdint>
#include <string>

#include "ZQTELMIMgrBusRecords.h"
#include "frame/FieldText.h"

namespace ZQTELMIMgrBus {

enum MediaPortBind : int32_t { kCloseRtspListener = 0, kOpenRtspListener = 1 };

// One RTSP listener order for the media module.
inline MediaPortInfo makeMediaPortOrder(const std::string& devIndex, MediaPortBind bind, uint16_t rtspPort) {
    MediaPortInfo info;
    copyField(info.devIndex, devIndex, kStoreIndexLength);
    info.rtspPortBind = bind;
    info.rtspPort = rtspPort;
    return info;
}

}  // namespace ZQTELMIMgrBus
