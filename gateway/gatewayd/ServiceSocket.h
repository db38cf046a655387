// The private Unix sockets the service listens on, with the service's wording of what went wrong.
#pragma once

#include <string>

#include "UniqueFd.h"

namespace gatewayd {

// A listening socket at path (mode 0600, so that only this user and nginx's workers, which run
// as this user, can connect); a file left by a crash is replaced, one that another process still
// accepts on is not. socketFlags are added to SOCK_STREAM | SOCK_CLOEXEC. Invalid, with error
// set, when it cannot be had.
gwio::UniqueFd listenOnServiceSocket(const std::string& path, int socketFlags, std::string& error);

}  // namespace gatewayd
