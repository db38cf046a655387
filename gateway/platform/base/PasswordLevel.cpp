// Password rating: -1 when the password is missing or holds a character outside printable
// ASCII (0x20-0x7E), which cannot be rated; 0 (too weak) when it is shorter than 8 characters,
// uses one class of characters only, or contains the user name (ignoring case); otherwise one
// less than the number of classes used among lower-case letters, upper-case letters, digits
// and other characters: 1 weak (two classes), 2 medium (three), 3 strong (four).
#include <strings.h>

#include <cctype>
#include <cstring>

#include "ZQBase.h"

int ZQ_BASE_GetPasswrodLevel(const char* password, const char* userName) {
    if (password == nullptr) {
        return -1;
    }
    bool lower = false, upper = false, digit = false, other = false;
    size_t length = 0;
    for (const char* p = password; *p != '\0'; ++p, ++length) {
        const unsigned char c = static_cast<unsigned char>(*p);
        if (c < 0x20 || c > 0x7e) {
            return -1;
        }
        lower |= std::islower(c) != 0;
        upper |= std::isupper(c) != 0;
        digit |= std::isdigit(c) != 0;
        other |= std::isalnum(c) == 0;
    }
    const int classes = int {lower} + int {upper} + int {digit} + int {other};
    const bool hasName = userName != nullptr && userName[0] != '\0' && strcasestr(password, userName) != nullptr;
    if (length < 8 || classes < 2 || hasName) {
        return 0;
    }
    return classes - 1;
}
