#include "devices/StoreKeys.h"

#include <openssl/rand.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <random>

namespace zqgw {

std::string newRecordIndex() {
    unsigned char b[16];
    if (RAND_bytes(b, sizeof(b)) != 1) {
        std::random_device fallback;  // the kernel's source, when OpenSSL's cannot be seeded
        for (unsigned char& byte : b) {
            byte = static_cast<unsigned char>(fallback());
        }
    }
    b[6] = static_cast<unsigned char>((b[6] & 0x0f) | 0x40);
    b[8] = static_cast<unsigned char>((b[8] & 0x3f) | 0x80);
    char text[37];
    std::snprintf(text, sizeof(text), "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x", b[0],
                  b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14], b[15]);
    return text;
}

void AddTimeClock::observe(const std::string& addTime) {
    tm t {};
    int micros = 0;
    if (std::sscanf(addTime.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d.%6dZ", &t.tm_year, &t.tm_mon, &t.tm_mday, &t.tm_hour,
                    &t.tm_min, &t.tm_sec, &micros) == 7) {
        t.tm_year -= 1900;
        t.tm_mon -= 1;
        int64_t stored = static_cast<int64_t>(::timegm(&t)) * 1000000 + micros;
        lastMicros_ = std::max(lastMicros_, stored);
    }
}

std::string AddTimeClock::next() {
    using namespace std::chrono;
    int64_t micros = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
    lastMicros_ = std::max(micros, lastMicros_ + 1);
    time_t seconds = static_cast<time_t>(lastMicros_ / 1000000);
    tm utc {};
    ::gmtime_r(&seconds, &utc);
    char text[64];
    std::snprintf(text, sizeof(text), "%04d-%02d-%02dT%02d:%02d:%02d.%06dZ", utc.tm_year + 1900, utc.tm_mon + 1,
                  utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, static_cast<int>(lastMicros_ % 1000000));
    return text;
}

}  // namespace zqgw
