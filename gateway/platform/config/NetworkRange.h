// An address range in CIDR notation ("127.0.0.0/8", "fd00::/8", or one address without a
// prefix length), for the settings that name networks.
#pragma once

#include <netinet/in.h>

#include <optional>
#include <string>

namespace zqgw {

// An IP address as 16 bytes: IPv4 addresses are held IPv4-mapped (::ffff:a.b.c.d), so that a
// mapped IPv6 address and its IPv4 form are one address.
struct IpAddress {
    in6_addr bytes {};
    bool isV4() const { return IN6_IS_ADDR_V4MAPPED(&bytes); }
};

// A numeric IPv4 or IPv6 address; nothing for names or anything else.
std::optional<IpAddress> parseIpAddress(const std::string& text);

class NetworkRange {
public:
    // "address/length" or "address"; nothing when malformed or the length is out of range.
    static std::optional<NetworkRange> parse(const std::string& text);
    bool contains(const IpAddress& address) const;

private:
    IpAddress base_;
    int prefixBits_ = 128;  // over the 16-byte form: an IPv4 /8 is 96 + 8
};

}  // namespace zqgw
