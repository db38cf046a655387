// The socket files the gateway's daemons serve on.
#pragma once

#include <string>

#include "UniqueFd.h"

namespace gwio {

// Why listenOnUnixSocket failed, for the caller to word in its own terms.
enum class UnixListenFailure { none, badPath, taken, system };

// Listens at path (a private file, 0600), replacing a socket file nobody serves any more.
// socketFlags are added to SOCK_STREAM | SOCK_CLOEXEC. On failure: an invalid descriptor, with
// failure set and, for a system call's failure, errno. Changes the umask for a moment: call
// it before any other thread exists.
UniqueFd listenOnUnixSocket(const std::string& path, int socketFlags, UnixListenFailure& failure);

}  // namespace gwio
