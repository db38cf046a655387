// The TELMI manager bus as the service reaches it: loaded at run time with dlopen and resolved
// symbol by symbol, as a vendor's management service does; never linked.
#pragma once

#include <string>

#include "ZQTELMIMgrBus.h"

namespace gatewayd {

// The fourteen exported functions; X(member, symbol).
#define GATEWAYD_TELMI_FUNCTIONS(X)                        \
    X(start, ZQ_TELMIMgrBus_Start)                         \
    X(stop, ZQ_TELMIMgrBus_Stop)                           \
    X(addUser, ZQ_TELMIMgrBus_AddUser)                     \
    X(quickAddUser, ZQ_TELMIMgrBus_QuickAddUser)           \
    X(delUser, ZQ_TELMIMgrBus_DelUser)                     \
    X(modUser, ZQ_TELMIMgrBus_ModUser)                     \
    X(queryUserList, ZQ_TELMIMgrBus_QueryUserList)         \
    X(getProtocolEnable, ZQ_TELMIMgrBus_GetProtocolEnable) \
    X(setProtocolEnable, ZQ_TELMIMgrBus_SetProtocolEnable) \
    X(checkDigest, ZQ_TELMIMgrBus_CheckDigest)             \
    X(bindPort, ZQ_TELMIMgrBus_BindPort)                   \
    X(unbindPort, ZQ_TELMIMgrBus_UnbindPort)               \
    X(bindRetry, ZQ_TELMIMgrBus_BindRetry)                 \
    X(queryPortList, ZQ_TELMIMgrBus_QueryTELMIPortList)

struct TelmiLibrary {
#define GATEWAYD_TELMI_MEMBER(member, symbol) decltype(&::symbol) member = nullptr;
    GATEWAYD_TELMI_FUNCTIONS(GATEWAYD_TELMI_MEMBER)
#undef GATEWAYD_TELMI_MEMBER

    // Loads the library at path and resolves every function; on failure error says which step
    // failed and the library is not kept. The library stays loaded for the life of the
    // process: its manager is destroyed at exit, after the service has called stop.
    bool load(const std::string& path, std::string& error);
};

}  // namespace gatewayd
