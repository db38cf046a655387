#include "OwnedPort.h"

#include <sys/socket.h>

#include <memory>

namespace gwio {

bool bindOwnedPort(httplib::Server& server, const std::string& address, int port) {
    // The library tries each resolved address in turn; the last socket it prepared is the bound one.
    auto bound = std::make_shared<socket_t>(INVALID_SOCKET);
    server.set_socket_options([bound](socket_t sock) {
        const int yes = 1;
        ::setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
        *bound = sock;
    });
    if (!server.bind_to_port(address.c_str(), port)) {
        return false;
    }
    // listen() on a socket that already listens only changes its backlog.
    return ::listen(*bound, SOMAXCONN) == 0;
}

}  // namespace gwio
