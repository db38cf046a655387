#include "LockKey.h"

#include <arpa/inet.h>

#include <cstring>

#include "HexText.h"

namespace gatewayd {
namespace {

std::string dotted(const in_addr& v4) {
    char text[INET_ADDRSTRLEN] = {};
    return ::inet_ntop(AF_INET, &v4, text, sizeof(text)) != nullptr ? text : "";
}

}  // namespace

std::string lockKeyFor(const std::string& address) {
    in_addr v4 {};
    if (::inet_pton(AF_INET, address.c_str(), &v4) == 1) {
        return dotted(v4);
    }
    in6_addr v6 {};
    if (::inet_pton(AF_INET6, address.c_str(), &v6) != 1) {
        return "";
    }
    if (IN6_IS_ADDR_V4MAPPED(&v6)) {
        std::memcpy(&v4, &v6.s6_addr[12], sizeof(v4));
        return dotted(v4);
    }
    return "6" + gwio::hexText(v6.s6_addr, 8);
}

}  // namespace gatewayd
