// The simulator's log lines: "<UTC time> <LEVEL> zqdevsim: <text>" on stderr.
#pragma once

namespace devsim {

enum class LogLevel { info, warning, error };

void log(LogLevel level, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace devsim
