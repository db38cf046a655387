#include "DevsimLog.h"

#include <cstdarg>
#include <cstdio>
#include <ctime>

namespace devsim {

void log(LogLevel level, const char* format, ...) {
    static const char* const kNames[] = {"INFO", "WARN", "ERROR"};
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);

    const std::time_t now = std::time(nullptr);
    std::tm utc {};
    ::gmtime_r(&now, &utc);
    char stamp[32];
    std::strftime(stamp, sizeof(stamp), "%Y-%m-%dT%H:%M:%SZ", &utc);
    // One call per line, so that lines of different threads never interleave.
    std::fprintf(stderr, "%s %s zqdevsim: %s\n", stamp, kNames[static_cast<int>(level)], text);
}

}  // namespace devsim
