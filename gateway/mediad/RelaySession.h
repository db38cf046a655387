// One relayed RTSP connection: a client accepted on a device's port and the connection to the
// device, bytes copied both ways through two bounded buffers.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "ByteBuffer.h"
#include "DeviceAddress.h"
#include "EventLoop.h"
#include "UniqueFd.h"

namespace mediad {

using gwio::ByteBuffer;
using gwio::EventLoop;
using gwio::IoResult;
using gwio::UniqueFd;
using gwio::Watch;

// Bytes held per direction; a side is not read while its bytes wait for the other side.
constexpr size_t kRelayBufferBytes = 64 * 1024;

class RelaySession {
public:
    using Clock = std::chrono::steady_clock;

    // onFinished is called once, from inside a callback of this session, after both sockets
    // are closed; the owner destroys the session later (EventLoop::post).
    // deviceSocket is a fresh non-blocking stream socket of the device address's family.
    RelaySession(EventLoop& loop, UniqueFd client, UniqueFd deviceSocket, std::string deviceIndex,
                 std::function<void()> onFinished);

    // Starts the non-blocking connect to the device; false (and finished) when it fails at once.
    bool connect(const SocketAddress& device);
    // Ends the relay (finished) when its client has sent nothing within firstRequest of being
    // accepted, or when no byte has come from either side for idle.
    void enforceLimits(Clock::time_point now, Clock::duration firstRequest, Clock::duration idle);

private:
    struct Side {
        Side(EventLoop& loop, UniqueFd socket, Watch::Handler handler)
            : fd(std::move(socket)), watch(loop, fd.get(), std::move(handler)), inbound(kRelayBufferBytes) {}
        UniqueFd fd;
        Watch watch;
        ByteBuffer inbound;  // read from this side, not yet written to the other
        bool readClosed = false;
        bool writeShut = false;
        uint64_t bytesIn = 0;
    };

    void onEvents(Side& side, uint32_t events);
    bool completeConnect();
    bool canRead(const Side& side) const;
    bool read(Side& side);
    bool forward(Side& from, Side& to);
    void updateInterest();
    void finish(const char* reason, int error);

    const std::string deviceIndex_;
    std::function<void()> onFinished_;
    Side client_;
    Side device_;
    bool connecting_ = true;
    bool finished_ = false;
    const Clock::time_point acceptedAt_ = Clock::now();
    Clock::time_point lastActivity_ = acceptedAt_;
};

}  // namespace mediad
