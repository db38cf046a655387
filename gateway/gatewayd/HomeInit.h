// First start of a gateway home: the gateway user "admin" gets its password (ZQ_Gateway_Init).
#pragma once

#include <string>

namespace gatewayd {

enum class InitOutcome { initialised, alreadyInitialised, failed };

// Where a generated admin password is left for the administrator, relative to the home.
constexpr const char* kGeneratedPasswordFile = "admin-password";

// Sets the admin password of a home that has none yet: the given one, or when it is empty a
// generated one (16 characters of letters and digits, from OpenSSL's random generator), which is
// written to kGeneratedPasswordFile (mode 0600, like everything in the home) and never printed.
// A home that has one is left alone.
InitOutcome initialiseHome(const std::string& password, std::string& error);

}  // namespace gatewayd
