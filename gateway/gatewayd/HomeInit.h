// First start of a gateway home: the gateway user "admin" gets its password (ZQ_Gateway_Init).
#pragma once

#include <string>

namespace gatewayd {

enum class InitOutcome { initialised, alreadyInitialised, failed };

// Sets the admin password of a home that has none yet: the given one, or when it is empty a
// generated one (16 characters of letters and digits, from OpenSSL's random generator),
// returned in password. A home that has one is left alone.
InitOutcome initialiseHome(std::string& password, std::string& error);

}  // namespace gatewayd
