#pragma once

#include <sys/un.h>

#include <string>

namespace gwio {

// The address of the socket file at path; false when the path is empty or too long for it.
bool unixSocketAddress(const std::string& path, sockaddr_un& address);

// True when a process accepts connections on that socket file: it must not be taken over.
bool someoneServesUnixSocket(const sockaddr_un& address);

}  // namespace gwio
