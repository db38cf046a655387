#include "UnixSocketPath.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>

namespace gwio {
namespace {

bool unixSocketAddress(const std::string& path, sockaddr_un& address) {
    address = {};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof(address.sun_path)) {
        return false;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

// True when a process accepts connections on that socket file: it must not be taken over.
bool someoneServesUnixSocket(const sockaddr_un& address) {
    UniqueFd probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return probe.valid() && ::connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

}  // namespace

UniqueFd listenOnUnixSocket(const std::string& path, int socketFlags, std::string& error) {
    sockaddr_un address {};
    if (!unixSocketAddress(path, address)) {
        error = "the socket path \"" + path + "\" is empty or too long";
        return UniqueFd();
    }
    if (someoneServesUnixSocket(address)) {
        error = "another process already serves " + path;
        return UniqueFd();
    }
    ::unlink(path.c_str());
    UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | socketFlags, 0));
    // The umask makes the file private from its creation on.
    const mode_t previous = ::umask(0177);
    const bool bound =
        fd.valid() && ::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    ::umask(previous);
    if (!bound || ::listen(fd.get(), SOMAXCONN) != 0) {
        error = "cannot listen on " + path + ": " + std::strerror(errno);
        return UniqueFd();
    }
    return fd;
}

}  // namespace gwio
