// Passwords for the management API's clients: never taken from the command line, where other
// users of the machine could read them.
#pragma once

#include <string>

namespace gwapi {

// The first line of path, or, with an empty path, the next line of standard input (asked for
// as "<what>: " without echo when that is a terminal); false with a message naming what when
// there is none or it is empty. Lines of standard input are read one per call, so a script can
// pipe several secrets in order.
bool readSecret(const std::string& what, const std::string& path, std::string& secret, std::string& error);

// A new password from standard input: typed twice on a terminal, so that a typing error does not
// lock anyone out; false with a message when there is none or the two differ.
bool readNewSecret(const std::string& what, std::string& secret, std::string& error);

// True when standard input is a terminal (a person types the secrets).
bool secretsAreTyped();

}  // namespace gwapi
