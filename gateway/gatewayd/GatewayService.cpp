#include "GatewayService.h"

#include <unistd.h>

#include "ApiRoutes.h"
#include "GatewaydLog.h"
#include "ZQBase.h"
#include "ZQGatewayHome.h"
#include "ZQGatewayNginx.h"

namespace gatewayd {
namespace {

// Threads: one per connection nginx may keep to the API (its max_conns) and a few more.
constexpr ServerLimits kApiLimits {36, 1 << 20};

}  // namespace

GatewayService::GatewayService(const TelmiLibrary& library, const std::string& mediadProgram)
    : library_(library), keeper_(mediadProgram), api_(kApiLimits), apiRoutes_(api_), admission_(library) {
    installManagementApi(api_, apiRoutes_, library_, keeper_);
}

GatewayService::~GatewayService() { stop(); }

bool GatewayService::start(std::string& error) {
    ZQGateway::tagGatewaySettings settings;
    if (const int code = ZQ_Gateway_GetSettings(settings); code != 0) {
        error = "the gateway settings cannot be read (code " + std::to_string(code) + ")";
        return false;
    }
    if (!api_.bindUnix(ZQ_Gateway_HomePath(ZQGateway::kManagementSocket), error) ||
        !admission_.bindUnix(ZQ_Gateway_HomePath(ZQGateway::kTelmiAdmissionSocket), error)) {
        return false;
    }
    // Ports of bindings lost while the service was down would otherwise be listened on again.
    if (!ZQ_Gateway_ClearNginxPorts()) {
        GATEWAYD_LOG(gwlog::kWarning,
                     "nginx's port list could not be emptied before start: it may keep ports no binding holds");
    }
    library_.start();
    started_ = true;
    admission_.start();
    apiThread_ = std::thread([this] { api_.listen_after_bind(); });
    // A server that is not yet running would ignore stop() and serve on forever.
    while (!api_.is_running()) {
        ::usleep(1000);
    }
    // A port another gateway holds would otherwise be shared with it, or keep nginx down.
    if (const std::vector<std::string> taken = ZQ_Gateway_NginxPortsTaken(); !taken.empty()) {
        for (const std::string& port : taken) {
            error += (error.empty() ? "" : "; ") + port;
        }
        stop();
        return false;
    }
    // Start told any old nginx to quit and wrote the bindings' ports: nginx comes back up here.
    if (ZQBase::CNginxOper::getInstance()->Reboot() == 0) {
        error = "nginx could not be started; see " + ZQ_Gateway_HomePath("nginx/logs/error.log");
        stop();
        return false;
    }
    keeper_.start();
    GATEWAYD_LOG(gwlog::kStartEnd, "gateway service started: API on 127.0.0.1:%d, TELMI user mode on port %d (0: none)",
                 settings.managementPort, settings.telmiUserPort);
    return true;
}

void GatewayService::stop() {
    keeper_.stop();
    if (api_.is_running()) {
        api_.stop();
    }
    if (apiThread_.joinable()) {
        apiThread_.join();
    }
    admission_.stop();
    if (started_) {
        library_.stop();
        started_ = false;
        GATEWAYD_LOG(gwlog::kStartEnd, "gateway service stopped");
    }
}

}  // namespace gatewayd
