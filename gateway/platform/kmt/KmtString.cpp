#include <strings.h>
#include <cstring>

#include "kmt.h"

char* KMT_Strncpy(char* dst, const char* src, int n) {
    for (int i = 0; i < n; ++i) {
        dst[i] = src[i];
        if (src[i] == '\0') {
            break;
        }
    }
    return dst;
}

int KMT_Strncmp(const char* a, const char* b, int n) { return n <= 0 ? 0 : std::strncmp(a, b, static_cast<size_t>(n)); }

const char* KMT_Strstr(const char* text, const char* part) { return std::strstr(text, part); }

const char* KMT_Strcasestr(const char* text, const char* part) { return ::strcasestr(text, part); }
