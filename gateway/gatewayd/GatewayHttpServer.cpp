#include "GatewayHttpServer.h"

#include <unistd.h>

#include "UnixSocketPath.h"

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
    gwio::UniqueFd fd = gwio::listenOnUnixSocket(path, 0, error);
    if (!fd.valid()) {
        return false;
    }
    svr_sock_ = fd.release();
    unixPath_ = path;
    return true;
}

}  // namespace gatewayd
