#include "GatewayHttpServer.h"

#include "UnixSocketPath.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace gatewayd {
namespace {

// nginx keeps its connections to the service for 10 s at most; the service waits longer, so
// that nginx, not the service, closes an idle one and never sends into a closing connection.
constexpr time_t kKeepAliveSec = 15;
constexpr size_t kKeepAliveRequests = 1000000;
constexpr time_t kReadTimeoutSec = 15;
constexpr time_t kWriteTimeoutSec = 30;

}  // namespace

GatewayHttpServer::GatewayHttpServer(const ServerLimits& limits) {
    const size_t threads = limits.threads;
    new_task_queue = [threads] { return new httplib::ThreadPool(threads); };
    set_keep_alive_max_count(kKeepAliveRequests);
    set_keep_alive_timeout(kKeepAliveSec);
    set_read_timeout(kReadTimeoutSec, 0);
    set_write_timeout(kWriteTimeoutSec, 0);
    set_payload_max_length(limits.maxBody);
}

GatewayHttpServer::~GatewayHttpServer() {
    if (!unixPath_.empty()) {
        ::unlink(unixPath_.c_str());
    }
}

bool GatewayHttpServer::bindUnix(const std::string& path, std::string& error) {
    sockaddr_un address {};
    if (!gwio::unixSocketAddress(path, address)) {
        error = "the socket path " + path + " is empty or too long";
        return false;
    }
    if (gwio::someoneServesUnixSocket(address)) {
        error = "another process already serves " + path;
        return false;
    }
    ::unlink(path.c_str());
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    // The umask makes the file private from its creation on; this runs before any thread does.
    const mode_t previous = ::umask(0177);
    const bool bound = fd >= 0 && ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    ::umask(previous);
    if (!bound || ::listen(fd, SOMAXCONN) != 0) {
        error = "cannot listen on " + path + ": " + std::strerror(errno);
        if (fd >= 0) {
            ::close(fd);
        }
        return false;
    }
    svr_sock_ = fd;
    unixPath_ = path;
    return true;
}

}  // namespace gatewayd
