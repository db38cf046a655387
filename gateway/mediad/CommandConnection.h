// One client of the command socket: framed commands in, one framed answer per command out, in
// order. Commands are answered on the loop as they complete; while answers wait to be read the
// client is not read further.
#pragma once

#include <cstdint>
#include <functional>

#include "ByteBuffer.h"
#include "EventLoop.h"
#include "MediaCommands.h"
#include "UniqueFd.h"

namespace mediad {

using gwio::ByteBuffer;
using gwio::EventLoop;
using gwio::IoResult;
using gwio::UniqueFd;
using gwio::Watch;

// Answers held for a client that does not read them before its commands are read no more.
constexpr size_t kMaxPendingAnswerBytes = 1u << 20;

class CommandConnection {
public:
    // onClosed is called once, from a callback of this connection, after its socket is closed.
    CommandConnection(EventLoop& loop, MediaCommands& commands, UniqueFd socket, std::function<void()> onClosed);
    // Starts serving; false (and closed) when the socket cannot be watched.
    bool start();

private:
    void onEvents(uint32_t events);
    bool reading() const;
    void answerCompleteFrames();
    void queueAnswer(const std::string& answer);
    void updateInterest();
    void close(const char* reason);

    MediaCommands& commands_;
    std::function<void()> onClosed_;
    UniqueFd fd_;
    Watch watch_;
    ByteBuffer in_;
    ByteBuffer out_;
    bool ended_ = false;     // the client sent its last byte
    bool refusing_ = false;  // a frame too large was announced: nothing more is read
    bool closed_ = false;
};

}  // namespace mediad
