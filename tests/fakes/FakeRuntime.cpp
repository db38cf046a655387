// Instant sleeps and captured log lines; the rest of the runtime is the real one.
#include <cstdarg>
#include <cstdio>

#include "FakePlatform.h"
#include "kmt.h"
#include "tvlog.h"

using fake::fakePlatform;
using fake::lockPlatform;

void KMT_Sleep(int ms) {
    auto lock = lockPlatform();
    fakePlatform().sleptMs += ms;
    if (fakePlatform().onSleep) {
        fakePlatform().onSleep(ms);
    }
}

void tvlog_format(int level, const char* module, const char* format, ...) {
    char text[8192];  // far longer than any line the library writes
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    auto lock = lockPlatform();
    fakePlatform().logs.push_back({level, module, format, text});
}
