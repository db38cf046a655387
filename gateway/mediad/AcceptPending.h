// Taking the pending connections of a listening socket, shared by every listener of the daemon.
#pragma once

#include <functional>

#include "UniqueFd.h"

namespace mediad {

using gwio::UniqueFd;

// Connections taken per wake-up of one listener, so that a flood on one port cannot starve the
// other listeners and the relays.
constexpr int kAcceptsPerWakeup = 64;

// Accepts up to limit pending connections on listenFd (non-blocking, close-on-exec) and hands
// each to take. When the process is out of descriptors the next pending connection is closed
// at once, so that it does not stay in the backlog waking the loop again and again. what names
// the listener in log lines.
void acceptPending(int listenFd, int limit, const std::function<void(UniqueFd)>& take, const char* what);

}  // namespace mediad
