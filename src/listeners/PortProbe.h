#pragma once

#include <list>

#include "ZQBase.h"

namespace ZQTELMIMgrBus {

// The base library's port probes, always asked in mode 1 and, for the holder, on every address.
inline bool portInUse(int port) { return CheckPort(port, 1) == -1; }

inline bool portHeldByOtherProgram(const std::list<int>& nginxPids, int port) {
    return CheckPortOccupy(nginxPids, "0.0.0.0", port, 1) != 0;
}

}  // namespace ZQTELMIMgrBus
