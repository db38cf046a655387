#include "UnixSocketPath.h"

#include <sys/socket.h>

#include <cstring>

#include "UniqueFd.h"

namespace gwio {

bool unixSocketAddress(const std::string& path, sockaddr_un& address) {
    address = {};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof(address.sun_path)) {
        return false;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

bool someoneServesUnixSocket(const sockaddr_un& address) {
    UniqueFd probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return probe.valid() &&
           ::connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

}  // namespace gwio
