#pragma once

#include <cstddef>
#include <string>

#include "frame/CInstanceMgr.h"
#include "frame/FieldText.h"

namespace ZQTELMIMgrBus {

constexpr std::size_t kMaxUserNameLength = 32;
constexpr std::size_t kMaxPasswordLength = 16;

// The gateway's own user: its digest lives in the configuration, so no TELMI account may take
// the name. Compared case-sensitively on purpose.
constexpr const char* kGatewayUserName = "admin";

// The name rule of adding and modifying accounts: 1 to 32 characters, not the gateway's own
// user, and only characters that checkNameChar accepts.
bool isAcceptableUserName(CInstanceMgr& mgr, const std::string& userName);

}  // namespace ZQTELMIMgrBus
