// The RTSP sources of all simulated devices: one listener per device on 127.0.0.1:rtspPort and
// every client connection, served by one thread with poll(), packets paced in real time.
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
    };
    struct Client {
        Client(const Source& source, gwio::UniqueFd socket, std::mt19937& random);
        const Source& source;
        gwio::UniqueFd socket;
        RtspSession session;
        gwio::ByteBuffer input;
        gwio::ByteBuffer output;
        Clock::time_point nextPacket;
        bool closing = false;  // ends once output is sent
        bool gone = false;
    };

    void run();
    // Sends the packets that are due; the time until the next one is due, or -1 when no
    // client plays.
    int pace(Clock::time_point now);
    void accept(const Source& source);
    void receive(Client& client);
    void send(Client& client);
    void drop(Client& client, const char* why);

    std::vector<Source> sources_;
    std::vector<std::unique_ptr<Client>> clients_;
    const size_t maxClients_;
    std::mt19937 random_;
    gwio::UniqueFd wake_;
    std::thread thread_;
};

}  // namespace devsim
