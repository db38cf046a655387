// The management service's run: the library started, the management API and the TELMI
// admission check on their Unix sockets, and nginx, which serves every port, up; then, on
// stop, the servers closed and the library stopped.
#pragma once

#include <string>
#include <thread>

#include "AdmissionServer.h"
#include "ApiRouter.h"
#include "GatewayHttpServer.h"
#include "ListenerKeeper.h"
#include "TelmiLibrary.h"

namespace gatewayd {

class GatewayService {
public:
    // mediadProgram: the media daemon to start when it has not been seen running.
    GatewayService(const TelmiLibrary& library, const std::string& mediadProgram);
    ~GatewayService();

    // Binds both sockets, calls ZQ_TELMIMgrBus_Start over an emptied nginx port list (so that
    // it holds the stored bindings alone), starts serving, makes sure nginx runs with the
    // bindings' ports and starts keeping the listeners in step. False with error when a socket
    // cannot be had (then nothing was started).
    bool start(std::string& error);
    // Stops keeping the listeners, stops accepting, lets running requests finish, then calls
    // ZQ_TELMIMgrBus_Stop.
    void stop();

private:
    const TelmiLibrary& library_;
    ListenerKeeper keeper_;
    GatewayHttpServer api_;
    ApiRouter apiRoutes_;
    AdmissionServer admission_;
    std::thread apiThread_;
    bool started_ = false;
};

}  // namespace gatewayd
