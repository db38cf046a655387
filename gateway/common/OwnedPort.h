#pragma once

#include <httplib.h>

#include <string>

namespace gwio {

// Binds an HTTP server to address:port as the port's only owner, with a full listen queue.
// SO_REUSEADDR lets it bind over connections still in TIME_WAIT there; the HTTP library's own
// SO_REUSEPORT is left off, so a second process can never share the port and take half of its
// requests. The library fixes the listen backlog at 5, which turns bursts of connections into
// one-second SYN retransmits; the backlog is raised to the system's maximum. Call before
// listen_after_bind(); false when the port cannot be bound.
bool bindOwnedPort(httplib::Server& server, const std::string& address, int port);

}  // namespace gwio
