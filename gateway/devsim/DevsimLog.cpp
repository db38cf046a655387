#include "DevsimLog.h"

#include <cstdarg>
#include <cstdio>

#include "UtcTime.h"

namespace devsim {

void log(LogLevel level, const char* format, ...) {
    static const char* const kNames[] = {"INFO", "WARN", "ERROR"};
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);

    // One call per line, so that lines of different threads never interleave.
    std::fprintf(stderr, "%s %s zqdevsim: %s\n", gwio::utcTimestamp().c_str(), kNames[static_cast<int>(level)], text);
}

}  // namespace devsim
