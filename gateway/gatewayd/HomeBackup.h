// Backup and restore of a gateway home. A backup is one SQLite file: a consistent copy of
// devices.db taken with SQLite's online backup (the gateway may run meanwhile), plus a table
// "home_files" holding the settings and keys (gateway.json, nonce.key and the generated password
// files). It holds every secret of the home and is written owner-only.
#pragma once

#include <string>

namespace gatewayd {

// Writes the home's backup to path (replaced at once when it exists); false with error.
bool backupHome(const std::string& path, std::string& error);

// Puts the backup at path in place of the home's store, settings and keys; refused while any of
// the home's daemons runs. False with error.
bool restoreHome(const std::string& path, std::string& error);

}  // namespace gatewayd
