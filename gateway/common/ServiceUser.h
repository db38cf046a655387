// Least privilege for the gateway's services: started by root, they run as one dedicated
// unprivileged user, which owns the gateway home. Started by anyone else, they run as that user
// and nothing here changes anything.
#pragma once

#include <string>

namespace gwio {

// As root: makes sure the service user exists (a system user with its own group, no home and no
// login shell, created with useradd when missing) and gives it the home: the directory and
// everything in it, walked without following links (a symbolic link is left alone, and so is a
// file with more than one name, which could be another file's hard link). Not root: true, and
// nothing done. false with the reason otherwise.
bool prepareServiceUser(const std::string& user, const std::string& home, std::string& error);

// prepareServiceUser, then, as root, the process goes on as the service user for good: its uid
// and gid, its group only, no capabilities, and no way to gain any (no_new_privs, so nothing it
// starts, nginx included, can either).
bool runAsServiceUser(const std::string& user, const std::string& home, std::string& error);

}  // namespace gwio
