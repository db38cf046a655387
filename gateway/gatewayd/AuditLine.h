// The audit trail of the management API: one INFO line per change asked for, naming who asked
// (the admin and the client address nginx saw), what (method and target) and the result (the
// status, the code, and each batch item's subject and code). Bodies are never copied: they may
// hold passwords.
#pragma once

#include <httplib.h>

#include <string>

namespace gatewayd {

// Empty for requests that change nothing (GET) or never passed the admin check.
std::string auditLine(const httplib::Request& req, const httplib::Response& res);

}  // namespace gatewayd
