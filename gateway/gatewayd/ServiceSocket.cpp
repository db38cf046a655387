#include "ServiceSocket.h"

#include <cerrno>
#include <cstring>

#include "UnixSocketPath.h"

namespace gatewayd {

gwio::UniqueFd listenOnServiceSocket(const std::string& path, int socketFlags, std::string& error) {
    gwio::UnixListenFailure failure;
    gwio::UniqueFd fd = gwio::listenOnUnixSocket(path, socketFlags, failure);
    switch (failure) {
        case gwio::UnixListenFailure::none: return fd;
        case gwio::UnixListenFailure::badPath: error = "the socket path " + path + " is empty or too long"; return fd;
        case gwio::UnixListenFailure::taken: error = "another process already serves " + path; return fd;
        case gwio::UnixListenFailure::system: break;
    }
    error = "cannot listen on " + path + ": " + std::strerror(errno);
    return fd;
}

}  // namespace gatewayd
