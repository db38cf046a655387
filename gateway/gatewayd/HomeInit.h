// The gateway home's two administrator credentials (see ZQGatewayHome.h): their passwords on
// first start, and new ones later.
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

// Replaces the credential's password (stored as its HA1 in gateway.json, written atomically) with
// one the gateway's password rating accepts for the user "admin": 0, the library's code for a
// password it cannot rate (256) or finds too weak (257), or the configuration store's code. The
// generated password file of the old one goes: it would no longer hold the password.
int replaceCredential(Credential credential, const std::string& password);
// Which clients must now be given the new password, in a sentence.
const char* clientsOf(Credential credential);

}  // namespace gatewayd
