// First start of a gateway home: its two administrator credentials (see ZQGatewayHome.h) get
// their passwords.
#pragma once

#include <string>

namespace gatewayd {

enum class InitOutcome { initialised, alreadyInitialised, failed };

enum class Credential {
    management,  // the management API's "admin"
    portMode,    // the TELMI "admin" that port mode asks for
};

// Where a generated password is left for the administrator, relative to the home.
const char* generatedPasswordFile(Credential credential);

// Sets the credential's password when the home has none yet: the given one, or when it is empty
// a generated one (16 characters of letters and digits, from OpenSSL's random generator), which
// is written to generatedPasswordFile (mode 0600, like everything in the home) and never
// printed. A credential that has a password is left alone.
InitOutcome initialiseCredential(Credential credential, const std::string& password, std::string& error);

}  // namespace gatewayd
