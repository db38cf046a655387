// Text in the fixed-width char fields of the platform's records, both ways.
#pragma once

#include <cstddef>
#include <cstring>
#include <optional>
#include <string>

namespace gwio {

// Copies text into a field, zero-filling the rest; text must already have been checked to
// leave room for the NUL.
template <size_t N>
void copyToField(char (&field)[N], const std::string& text) {
    static_assert(N > 0);
    const size_t length = text.size() < N - 1 ? text.size() : N - 1;
    std::memset(field, 0, N);
    std::memcpy(field, text.data(), length);
}

// The text of a field; empty when the field holds no NUL-terminated text.
template <size_t N>
std::optional<std::string> fieldText(const char (&field)[N]) {
    const size_t length = strnlen(field, N);
    if (length == 0 || length == N) {
        return std::nullopt;
    }
    return std::string(field, length);
}

}  // namespace gwio
