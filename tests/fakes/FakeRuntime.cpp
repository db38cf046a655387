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
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    int needed = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string text(needed > 0 ? static_cast<size_t>(needed) : 0, '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, args);
    va_end(args);
    auto lock = lockPlatform();
    fakePlatform().logs.push_back({level, module, format, text});
}
