// Instant sleeps and captured log lines; the rest of the runtime is the real one.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "FakePlatform.h"
#include "kmt.h"
#include "tvlog.h"

using fake::fakePlatform;

void KMT_Sleep(int ms) {
    std::function<void(int)> hook;
    {
        std::lock_guard<std::recursive_mutex> lock(fakePlatform().mutex);
        fakePlatform().sleptMs += ms;
        hook = fakePlatform().onSleep;
    }
    if (hook) {
        hook(ms);
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
    if (std::getenv("FAKE_LOG_ECHO") != nullptr) {
        std::fprintf(stderr, "[fake log %d %s] %s\n", level, module, text.c_str());
    }
    std::lock_guard<std::recursive_mutex> lock(fakePlatform().mutex);
    fakePlatform().logs.push_back({level, module, format, text});
}
