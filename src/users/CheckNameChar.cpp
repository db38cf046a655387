#include <cstring>

#include "frame/CInstanceMgr.h"

namespace ZQTELMIMgrBus {

namespace {
// Characters that file systems and HTTP paths treat specially.
constexpr const char* kForbiddenNameChars = "/\\:*?'\"<>|%";
constexpr signed char kLastControlChar = 31;
}  // namespace

// Bytes are taken as signed on purpose: every byte from 0x80 up is negative and refused, so
// names stay plain ASCII. Space and DEL pass.
int CInstanceMgr::checkNameChar(const char* name, int len) {
    for (int i = 0; i < len; ++i) {
        const signed char c = static_cast<signed char>(name[i]);
        if (c <= kLastControlChar || std::strchr(kForbiddenNameChars, c) != nullptr) {
            return 0;
        }
    }
    return 1;
}

}  // namespace ZQTELMIMgrBus
