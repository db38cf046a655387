// The media daemon's command socket as a client's byte stream: length-prefixed frames read by
// the daemon's connection on its event loop, over a socket pair whose client end has said all it
// will. The device store is empty, so no listener is opened. Every command frame the stream
// completes gets one answer frame, in order; an announced frame over the limit gets one refusal
// and ends the connection; every answer is a JSON object.
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "CommandConnection.h"
#include "JsonText.h"
#include "ZQMediaFrame.h"

namespace {

using ZQGateway::decodeMediaFrameLength;
using ZQGateway::kMediaFrameHeader;

// Enough answers to fill no socket buffer, so the connection never waits for a reader.
constexpr size_t kMaxStream = 2048;

struct Daemon {
    gwio::EventLoop loop {[](const std::string&) {}};
    mediad::RtspListeners listeners {loop, [](gwio::UniqueFd, const std::string&) {}};
    mediad::DeviceDirectory directory;
    mediad::MediaCommands commands {listeners, directory};
};

const unsigned char* bytes(const std::string& text, size_t at) {
    return reinterpret_cast<const unsigned char*>(text.data() + at);
}

// How many answers the stream asks for: one per complete frame, up to and including the first
// one announced too large.
size_t answersAsked(const std::string& stream) {
    size_t asked = 0;
    for (size_t at = 0; stream.size() - at >= kMediaFrameHeader; ++asked) {
        const uint32_t length = decodeMediaFrameLength(bytes(stream, at));
        if (length > ZQGateway::kMaxMediaFrame) {
            return asked + 1;
        }
        if (stream.size() - at - kMediaFrameHeader < length) {
            break;
        }
        at += kMediaFrameHeader + length;
    }
    return asked;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > kMaxStream) {
        return 0;
    }
    static Daemon daemon;
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) != 0) {
        std::abort();
    }
    gwio::UniqueFd client(ends[1]);
    if (::write(client.get(), data, size) != static_cast<ssize_t>(size) || ::shutdown(client.get(), SHUT_WR) != 0) {
        std::abort();
    }
    mediad::CommandConnection connection(daemon.loop, daemon.commands, gwio::UniqueFd(ends[0]),
                                         [] { daemon.loop.stop(); });
    if (connection.start() && !daemon.loop.run()) {
        std::abort();
    }

    std::string answers;
    char chunk[4096];
    for (ssize_t n; (n = ::read(client.get(), chunk, sizeof(chunk))) > 0;) {
        answers.append(chunk, static_cast<size_t>(n));
    }
    size_t count = 0;
    for (size_t at = 0; at < answers.size(); ++count) {
        if (answers.size() - at < kMediaFrameHeader ||
            answers.size() - at - kMediaFrameHeader < decodeMediaFrameLength(bytes(answers, at))) {
            std::abort();  // a cut-off answer frame
        }
        const std::string answer = answers.substr(at + kMediaFrameHeader, decodeMediaFrameLength(bytes(answers, at)));
        Json::Value reply;
        std::string error;
        if (!gwapi::parseJson(answer, reply, error) || !reply.isObject()) {
            std::abort();
        }
        at += kMediaFrameHeader + answer.size();
    }
    if (count != answersAsked(std::string(reinterpret_cast<const char*>(data), size))) {
        std::abort();
    }
    return 0;
}
