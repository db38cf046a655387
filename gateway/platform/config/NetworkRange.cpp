#include "config/NetworkRange.h"

#include <arpa/inet.h>

#include <cstring>

namespace zqgw {

std::optional<IpAddress> parseIpAddress(const std::string& text) {
    IpAddress address;
    in_addr v4 {};
    if (::inet_pton(AF_INET, text.c_str(), &v4) == 1) {
        address.bytes.s6_addr[10] = 0xff;
        address.bytes.s6_addr[11] = 0xff;
        std::memcpy(&address.bytes.s6_addr[12], &v4, sizeof(v4));
        return address;
    }
    if (::inet_pton(AF_INET6, text.c_str(), &address.bytes) == 1) {
        return address;
    }
    return std::nullopt;
}

std::optional<NetworkRange> NetworkRange::parse(const std::string& text) {
    const size_t slash = text.find('/');
    const auto base = parseIpAddress(text.substr(0, slash));
    if (!base) {
        return std::nullopt;
    }
    NetworkRange range;
    range.base_ = *base;
    const int familyBits = base->isV4() ? 32 : 128;
    int length = familyBits;
    if (slash != std::string::npos) {
        const std::string digits = text.substr(slash + 1);
        if (digits.empty() || digits.size() > 3 || digits.find_first_not_of("0123456789") != std::string::npos ||
            std::stoi(digits) > familyBits) {
            return std::nullopt;
        }
        length = std::stoi(digits);
    }
    range.prefixBits_ = 128 - familyBits + length;
    return range;
}

bool NetworkRange::contains(const IpAddress& address) const {
    for (int bit = 0; bit < prefixBits_; ++bit) {
        const int byte = bit / 8, mask = 0x80 >> (bit % 8);
        if ((address.bytes.s6_addr[byte] & mask) != (base_.bytes.s6_addr[byte] & mask)) {
            return false;
        }
    }
    return true;
}

}  // namespace zqgw
