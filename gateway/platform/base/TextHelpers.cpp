#include <cstring>

#include "ZQBase.h"
#include "base/Md5Hex.h"

// Looks only at the first srcLen bytes (or up to a NUL before them). The text between the
// markers is copied with its NUL only when it fits in outLen bytes; a longer text counts as
// not found (0, out left empty), so that a cut-off value is never taken for the whole one.
int GetMiddleString(const char* src, int srcLen, const char* begin, const char* end, char* out, int outLen) {
    if (src == nullptr || begin == nullptr || end == nullptr || out == nullptr || srcLen <= 0 || outLen <= 0 ||
        begin[0] == '\0' || end[0] == '\0') {
        return 0;
    }
    out[0] = '\0';
    const std::string text(src, strnlen(src, static_cast<size_t>(srcLen)));
    const size_t open = text.find(begin);
    if (open == std::string::npos) {
        return 0;
    }
    const size_t start = open + std::strlen(begin);
    const size_t close = text.find(end, start);
    if (close == std::string::npos || close - start >= static_cast<size_t>(outLen)) {
        return 0;
    }
    std::memcpy(out, text.data() + start, close - start);
    out[close - start] = '\0';
    return 1;
}

int mprGetMD5Hash(const unsigned char* data, int len, char* out) {
    if ((data == nullptr && len != 0) || len < 0 || out == nullptr) {
        return -1;
    }
    const std::string hex = zqbase::md5Hex(data, static_cast<size_t>(len));
    if (hex.empty()) {
        return -1;
    }
    std::memcpy(out, hex.c_str(), hex.size() + 1);
    return 0;
}
