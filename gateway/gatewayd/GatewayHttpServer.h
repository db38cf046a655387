// An HTTP server set up the service's way: a thread pool, keep-alive, time-outs and a body
// size limit, bound to a TCP address or to a Unix socket (which cpp-httplib cannot bind by
// itself: the socket is made here and handed to the server as its listening socket).
#pragma once

#include <httplib.h>

#include <string>

namespace gatewayd {

struct ServerLimits {
    size_t threads;
    size_t maxBody;  // bytes; a larger body is answered 413
};

class GatewayHttpServer : public httplib::Server {
public:
    explicit GatewayHttpServer(const ServerLimits& limits);
    ~GatewayHttpServer() override;

    // host "::" listens on every IPv6 and IPv4 address, falling back to "0.0.0.0" where the
    // system has no IPv6.
    bool bindTcp(const std::string& host, int port, std::string& error);
    // The socket file is created with mode 0600, so that only this user (and nginx's workers,
    // which run as this user) can connect; a file left by a crash is replaced, one that
    // another process still accepts on is not.
    bool bindUnix(const std::string& path, std::string& error);

private:
    std::string unixPath_;
};

}  // namespace gatewayd
