// Logging library of the gateway (libtvlog).
//
// Requirements on an implementation: safe to call from any thread; the format is printf's.
#pragma once

void tvlog_format(int level, const char* module, const char* format, ...) __attribute__((format(printf, 3, 4)));
