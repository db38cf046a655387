#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "ZQDeviceMgr.h"

namespace ZQTELMIMgrBus {

// Device-access protocols whose devices this library serves.
enum DeviceProtocol : uint8_t {
    kProtocolTarn = 2,
    kProtocolTarn5 = 4,
};

// The ID a device is known by outside the gateway; none for a protocol we do not serve.
inline std::optional<std::string> accessIdOf(const ZQDeviceMgr::CKelDevice& device) {
    switch (device.getProtocol()) {
        case kProtocolTarn: return device.getTarnDeviceID();
        case kProtocolTarn5: return device.getTarn5DeviceID();
        default: return std::nullopt;
    }
}

}  // namespace ZQTELMIMgrBus
