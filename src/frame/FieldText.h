// Reading and writing the fixed-width text fields of records.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>

#include "kmt.h"

namespace ZQTELMIMgrBus {

// Keys of the device store (users, bindings, devices) are at most this many characters.
constexpr std::size_t kStoreIndexLength = 36;
// A device's access ID (its Tarn or Tarn5 device ID) is at most this many characters.
constexpr std::size_t kMaxDeviceIdLength = 31;

// A host record's text field may fill its whole width without a NUL: read it no further.
template <std::size_t N>
std::string fieldText(const char (&field)[N]) {
    return std::string(field, strnlen(field, N));
}

// Copies at most maxChars characters of text, never more than the field holds with its NUL, and
// terminates the copy: the field may be one the host filled, not a zeroed one.
template <std::size_t N>
void copyField(char (&field)[N], const std::string& text, std::size_t maxChars) {
    const std::size_t count = std::min({text.size(), maxChars, N - 1});
    KMT_Strncpy(field, text.c_str(), static_cast<int>(count));
    field[count] = '\0';
}

// The length rule of most texts in requests: present, and no longer than the limit.
inline bool isNonEmptyWithin(const std::string& text, std::size_t maxLength) {
    return !text.empty() && text.size() <= maxLength;
}

}  // namespace ZQTELMIMgrBus
