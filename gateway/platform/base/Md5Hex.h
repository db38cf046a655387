#pragma once

#include <string>

namespace zqbase {

// MD5 of the bytes as 32 lower-case hex digits.
std::string md5Hex(const void* data, size_t len);
inline std::string md5Hex(const std::string& text) { return md5Hex(text.data(), text.size()); }

}  // namespace zqbase
