// Serves the TELMI admission check (TelmiAdmission.h) to nginx on a private Unix socket, from
// one event loop: every TELMI request passes here, and a loop answers each with a single wake
// of one thread where a thread per connection paid a wake and a scheduler round per request.
// A check never waits on the network, so one loop keeps up with nginx on every core.
#pragma once

#include <memory>
#include <string>
#include <thread>

#include "TelmiLibrary.h"

struct event_base;
struct evhttp;
struct evhttp_request;

namespace gatewayd {

class AdmissionServer {
public:
    explicit AdmissionServer(const TelmiLibrary& library);
    ~AdmissionServer();
    AdmissionServer(const AdmissionServer&) = delete;
    AdmissionServer& operator=(const AdmissionServer&) = delete;

    // Listens on the service socket at path (see UnixSocketPath.h); false with error otherwise.
    bool bindUnix(const std::string& path, std::string& error);
    // Answers on a thread of its own until stop(); the check in progress is finished first.
    void start();
    void stop();

private:
    static void answer(evhttp_request* request, void* server);

    const TelmiLibrary& library_;
    std::unique_ptr<event_base, void (*)(event_base*)> base_;
    std::unique_ptr<evhttp, void (*)(evhttp*)> http_;
    std::string path_;
    std::thread loop_;
};

}  // namespace gatewayd
