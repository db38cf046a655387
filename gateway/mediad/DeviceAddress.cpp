#include "DeviceAddress.h"

#include <netdb.h>
#include <strings.h>

#include <algorithm>
#include <cstring>

#include "PortNumber.h"

namespace mediad {

namespace {

constexpr const char* kScheme = "rtsp://";
constexpr const char* kDefaultPort = "554";

// Splits "host", "host:port", "[v6]" or "[v6]:port"; false when the form is none of them.
bool splitHostPort(const std::string& authority, std::string& host, std::string& port) {
    port = kDefaultPort;
    std::string rest;
    if (!authority.empty() && authority[0] == '[') {
        const size_t close = authority.find(']');
        if (close == std::string::npos) {
            return false;
        }
        host = authority.substr(1, close - 1);
        rest = authority.substr(close + 1);
    } else if (std::count(authority.begin(), authority.end(), ':') > 1) {
        host = authority;  // a bare IPv6 address, no port
    } else {
        const size_t colon = authority.find(':');
        host = authority.substr(0, colon);
        rest = colon == std::string::npos ? std::string() : authority.substr(colon);
    }
    if (!rest.empty()) {
        if (rest[0] != ':') {
            return false;
        }
        port = rest.substr(1);
    }
    uint16_t number = 0;
    return !host.empty() && parsePortNumber(port, number);
}

}  // namespace

bool parseDeviceAddress(const std::string& text, SocketAddress& address, std::string& error) {
    std::string authority = text;
    const size_t schemeLength = std::strlen(kScheme);
    if (authority.size() >= schemeLength && ::strncasecmp(authority.c_str(), kScheme, schemeLength) == 0) {
        authority.erase(0, schemeLength);
    }
    authority = authority.substr(0, authority.find('/'));
    const size_t at = authority.rfind('@');
    if (at != std::string::npos) {
        authority.erase(0, at + 1);
    }
    std::string host, port;
    if (!splitHostPort(authority, host, port)) {
        error = "not an RTSP address: \"" + text + "\"";
        return false;
    }
    if (host == "localhost") {
        host = "127.0.0.1";
    }
    addrinfo hints {};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    const int rc = ::getaddrinfo(host.c_str(), port.c_str(), &hints, &found);
    if (rc != 0 || found == nullptr) {
        error = "host of \"" + text + "\" is not a numeric address: " + ::gai_strerror(rc);
        return false;
    }
    std::memcpy(&address.storage, found->ai_addr, found->ai_addrlen);
    address.length = found->ai_addrlen;
    ::freeaddrinfo(found);
    return true;
}

}  // namespace mediad
