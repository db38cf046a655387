// An HTTP server set up the service's way, on a private Unix socket that only nginx connects
// to (nginx is the gateway's only network-facing server: it bounds what clients may send and
// hands the service complete requests). cpp-httplib cannot bind a Unix socket by itself: the
// socket is made here and handed to the server as its listening socket.
#pragma once

#include <httplib.h>

#include <string>

namespace gatewayd {

struct ServerLimits {
    size_t threads;  // at least the connections nginx may open to it (its max_conns)
    size_t maxBody;  // bytes; a larger body is answered 413
};

class GatewayHttpServer : public httplib::Server {
public:
    explicit GatewayHttpServer(const ServerLimits& limits);
    ~GatewayHttpServer() override;

    // Listens on the service socket at path (see UnixSocketPath.h).
    bool bindUnix(const std::string& path, std::string& error);

private:
    std::string unixPath_;
};

}  // namespace gatewayd
