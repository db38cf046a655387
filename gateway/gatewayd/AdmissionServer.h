// Serves the TELMI admission check (TelmiAdmission.h) to nginx on a private Unix socket, from
// one event loop: every TELMI request passes here, and a loop answers each with a single wake
// of one thread where a thread per connection paid a wake and a scheduler round per request.
// A check never waits on the network, so one loop keeps up with nginx on every core. Each
// question is peeked at, answered with one write straight from the loop's callback, and then
// taken: a general HTTP server's buffers, header lists and interest changes cost more than the
// check.
#pragma once

#include <list>
#include <memory>
#include <string>
#include <thread>

#include "TelmiLibrary.h"

struct event_base;
struct evconnlistener;
struct sockaddr;

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
    struct Connection;
    static void accepted(evconnlistener* listener, int fd, sockaddr* address, int length, void* server);
    static void readable(int fd, short what, void* connection);
    static void writable(int fd, short what, void* connection);
    // Queues the answers to the questions in data.
    void answer(Connection& connection, const char* data, size_t size);
    bool flush(Connection& connection);
    void close(Connection& connection);

    const TelmiLibrary& library_;
    std::unique_ptr<event_base, void (*)(event_base*)> base_;
    std::unique_ptr<evconnlistener, void (*)(evconnlistener*)> listener_;
    // Most recently active first: when they are too many, the one idle longest makes room.
    std::list<std::unique_ptr<Connection>> connections_;
    std::string path_;
    std::thread loop_;
};

}  // namespace gatewayd
