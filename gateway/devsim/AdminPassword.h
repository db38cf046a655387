// The gateway admin's password for registering devices: never taken from the command line,
// where other users could read it.
#pragma once

#include <string>

namespace devsim {

// The first line of path, or, with an empty path, one line from standard input (asked for
// without echo when that is a terminal); false with a message when there is none.
bool readAdminPassword(const std::string& path, std::string& password, std::string& error);

}  // namespace devsim
