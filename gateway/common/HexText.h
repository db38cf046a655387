// Bytes as lower-case hex digits, two a byte: digests, nonces, keys and escaped bytes in logs.
#pragma once

#include <cstddef>
#include <string>

namespace gwio {

inline std::string hexText(const unsigned char* bytes, size_t count) {
    static const char kHex[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * count);
    for (size_t i = 0; i < count; ++i) {
        text.push_back(kHex[bytes[i] >> 4]);
        text.push_back(kHex[bytes[i] & 0x0f]);
    }
    return text;
}

}  // namespace gwio
