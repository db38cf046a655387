// The requester key of the lock-out bookkeeping (at most 17 characters, the width of the
// library's lockKey field less its NUL), derived from the client's address:
//   IPv4, and IPv4 mapped into IPv6 ("::ffff:a.b.c.d"): the dotted address, e.g. "192.0.2.7";
//   IPv6: "6" and the 16 hex digits of the address's /64 prefix, e.g. "620010db8000a0001"
//     for 2001:db8:a:1::5. A /64 is what one IPv6 host or site is given, and a host picks
//     addresses within it at will; keying the full address would let it dodge the lock-out.
#pragma once

#include <string>

namespace gatewayd {

constexpr size_t kMaxLockKey = 17;

// Empty when address is not an IP address.
std::string lockKeyFor(const std::string& address);

}  // namespace gatewayd
