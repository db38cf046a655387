// What gateway.json may hold (docs/configuration.md): every key, its type and range, and the
// rules between keys. The service refuses to start on a file that breaks them, instead of
// putting defaults in place of what an administrator wrote.
#pragma once

#include <json/json.h>

#include <optional>
#include <string>
#include <vector>

namespace zqgw {

// The log level a "logLevel" value names: 2 to 5, or DEBUG, INFO, WARN, ERROR (any case).
std::optional<int> logLevelOf(const Json::Value& value);

// Every way the parsed file breaks the schema, one line each, starting with the key concerned
// (a problem of the whole file names none).
std::vector<std::string> settingsProblems(const Json::Value& root);

// The same for the text of the file: a text that is not JSON gets one line with the line and
// column where reading stopped.
std::vector<std::string> settingsTextProblems(const std::string& text);

}  // namespace zqgw
