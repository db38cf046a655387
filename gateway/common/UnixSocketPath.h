// The socket files the gateway's daemons serve on.
#pragma once

#include <string>

#include "UniqueFd.h"

namespace gwio {

// Listens at path (a private file, 0600, so that only this user and nginx's workers, which run
// as this user, can connect), replacing a socket file nobody serves any more; one that another
// process still accepts on is not taken over. socketFlags are added to SOCK_STREAM |
// SOCK_CLOEXEC. On failure: an invalid descriptor, and error says why. Changes the umask for a
// moment: call it before any other thread exists.
UniqueFd listenOnUnixSocket(const std::string& path, int socketFlags, std::string& error);

}  // namespace gwio
