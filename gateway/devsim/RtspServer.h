// The RTSP sources of all simulated devices: one listener per device on 127.0.0.1:rtspPort and
// every client connection, served by one thread with the gateway's event loop, packets paced in
// real time by a timer.
// A client that does not keep up (more than kMaxPendingOutput unsent) is dropped.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ByteBuffer.h"
#include "DeviceSpec.h"
#include "EventLoop.h"
#include "RtspSession.h"
#include "UniqueFd.h"

namespace devsim {

class RtspServer {
public:
    static constexpr size_t kMaxPendingOutput = 64 * 1024;  // about 7 s of audio

    RtspServer(const std::vector<DeviceSpec>& devices, size_t maxClients);
    ~RtspServer();
    RtspServer(const RtspServer&) = delete;
    RtspServer& operator=(const RtspServer&) = delete;

    // Opens every device's listener, then serves on its own thread; false with a message when a
    // port cannot be listened on.
    bool start(std::string& error);
    void stop();

private:
    using Clock = std::chrono::steady_clock;
    struct Source {
        StreamSource stream;
        gwio::UniqueFd listener;
        std::unique_ptr<gwio::Watch> watch;
    };
    struct Client {
        Client(RtspServer& server, const Source& source, gwio::UniqueFd socket);
        const Source& source;
        gwio::UniqueFd socket;
        gwio::Watch watch;
        RtspSession session;
        gwio::ByteBuffer input;
        gwio::ByteBuffer output;
        Clock::time_point nextPacket;
        bool closing = false;  // ends once output is sent
        bool gone = false;
    };

    void run();
    // Sends the packets that are due, then sets the pacing timer for the next one (off when no
    // client plays).
    void pace();
    void accept(const Source& source);
    void serve(Client& client, uint32_t events);
    void receive(Client& client);
    void send(Client& client);
    void drop(Client& client, const char* why);
    // Watches what the client's state calls for; a client that is gone leaves after the batch.
    void watch(Client& client);

    gwio::EventLoop loop_;
    std::vector<Source> sources_;
    std::vector<std::unique_ptr<Client>> clients_;
    const size_t maxClients_;
    std::mt19937 random_;
    gwio::UniqueFd wake_;
    std::unique_ptr<gwio::Watch> wakeWatch_;
    gwio::UniqueFd pacer_;
    std::unique_ptr<gwio::Watch> pacerWatch_;
    std::thread thread_;
};

}  // namespace devsim
