// The management service's run: the library started, the management API, the two TELMI front
// ends and nginx up; then, on stop, the servers closed and the library stopped.
#pragma once

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "GatewayHttpServer.h"
#include "TelmiLibrary.h"

namespace gatewayd {

struct ServiceOptions {
    std::string apiHost = "127.0.0.1";
    int apiPort = 0;  // 0: the settings' managementPort
};

class GatewayService {
public:
    explicit GatewayService(const TelmiLibrary& library);
    ~GatewayService();

    // Binds every listener, calls ZQ_TELMIMgrBus_Start, starts serving and makes sure nginx
    // runs with the bindings' ports. False with error when a listener cannot be had (then
    // nothing was started).
    bool start(const ServiceOptions& options, std::string& error);
    // Stops accepting, lets running requests finish, then calls ZQ_TELMIMgrBus_Stop.
    void stop();

private:
    const TelmiLibrary& library_;
    GatewayHttpServer api_;
    GatewayHttpServer userFront_;
    GatewayHttpServer portFront_;
    std::vector<GatewayHttpServer*> serving_;
    std::vector<std::thread> threads_;
    bool started_ = false;
};

}  // namespace gatewayd
