#include "GatewayService.h"

#include <unistd.h>

#include <cstring>

#include "ApiRoutes.h"
#include "GatewaydLog.h"
#include "TelmiFrontEnd.h"
#include "ZQBase.h"
#include "ZQGatewayHome.h"

namespace gatewayd {
namespace {

constexpr ServerLimits kApiLimits {8, 1 << 20};
constexpr ServerLimits kTelmiLimits {64, 32 << 20};
constexpr const char* kDefaultFrontSocket = "run/telmi-front.sock";
constexpr const char* kUnixScheme = "unix:";

// The port-mode front end listens only where nginx is told to send TELMI requests, and only
// on a Unix socket: nobody but nginx may claim a port.
bool frontSocketPath(const ZQGateway::tagGatewaySettings& settings, std::string& path, std::string& error) {
    const std::string& upstream = settings.telmiUpstream;
    if (upstream.empty()) {
        path = ZQ_Gateway_HomePath(kDefaultFrontSocket);
    } else if (upstream.compare(0, std::strlen(kUnixScheme), kUnixScheme) == 0) {
        path = upstream.substr(std::strlen(kUnixScheme));
    } else {
        error = "the TELMI upstream \"" + upstream + "\" is not a Unix socket (\"unix:/path\"); the port-mode front "
                "end listens only on one";
        return false;
    }
    return true;
}

}  // namespace

GatewayService::GatewayService(const TelmiLibrary& library)
    : library_(library), api_(kApiLimits), userFront_(kTelmiLimits), portFront_(kTelmiLimits) {
    installManagementApi(api_, library_);
    installUserModeFrontEnd(userFront_, library_);
    installPortModeFrontEnd(portFront_, library_);
}

GatewayService::~GatewayService() { stop(); }

bool GatewayService::start(const ServiceOptions& options, std::string& error) {
    ZQGateway::tagGatewaySettings settings;
    if (const int code = ZQ_Gateway_GetSettings(settings); code != 0) {
        error = "the gateway settings cannot be read (code " + std::to_string(code) + ")";
        return false;
    }
    std::string socketPath;
    const int apiPort = options.apiPort != 0 ? options.apiPort : settings.managementPort;
    if (!frontSocketPath(settings, socketPath, error) || !portFront_.bindUnix(socketPath, error) ||
        !api_.bindTcp(options.apiHost, apiPort, error)) {
        return false;
    }
    serving_ = {&api_, &portFront_};
    if (settings.telmiUserPort != 0) {
        if (!userFront_.bindTcp("::", settings.telmiUserPort, error)) {
            return false;
        }
        serving_.push_back(&userFront_);
    }

    library_.start();
    started_ = true;
    for (GatewayHttpServer* server : serving_) {
        threads_.emplace_back([server] { server->listen_after_bind(); });
    }
    // A server that is not yet running would ignore stop() and serve on forever.
    for (GatewayHttpServer* server : serving_) {
        while (!server->is_running()) {
            ::usleep(1000);
        }
    }
    // Start told any old nginx to quit and wrote the bindings' ports: nginx comes back up here.
    if (ZQBase::CNginxOper::getInstance()->Reboot() == 0) {
        GATEWAYD_LOG(5, "nginx could not be started: port mode serves nobody until a bind or retry restarts it");
    }
    GATEWAYD_LOG(3, "gateway service started: API on %s:%d, TELMI user mode on port %d, port mode via %s",
                 options.apiHost.c_str(), apiPort, settings.telmiUserPort, socketPath.c_str());
    return true;
}

void GatewayService::stop() {
    for (GatewayHttpServer* server : serving_) {
        server->stop();
    }
    for (std::thread& thread : threads_) {
        thread.join();
    }
    threads_.clear();
    serving_.clear();
    if (started_) {
        library_.stop();
        started_ = false;
        GATEWAYD_LOG(3, "gateway service stopped");
    }
}

}  // namespace gatewayd
