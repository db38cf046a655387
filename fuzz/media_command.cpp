// The media daemon's commands, as its command socket hands them over (one frame's payload).
// The device store is empty, so no listener is ever opened. Every answer is a JSON object that
// frames and unframes intact; a command the daemon accepts, re-encoded the way the library
// writes commands, is the same command and gets the same answer.
#include <json/json.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "JsonText.h"
#include "MediaCommands.h"
#include "ZQMediaFrame.h"

namespace {

mediad::MediaCommands& commands() {
    static gwio::EventLoop loop {[](const std::string&) {}};
    static mediad::RtspListeners listeners(loop, [](gwio::UniqueFd, const std::string&) {});
    static mediad::DeviceDirectory directory;
    static mediad::MediaCommands instance(listeners, directory);
    return instance;
}

Json::Value parsed(const std::string& text) {
    Json::Value value;
    std::string error;
    if (!gwapi::parseJson(text, value, error)) {
        std::abort();
    }
    return value;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string command(reinterpret_cast<const char*>(data), size);
    const std::string answer = commands().answer(command);
    const Json::Value reply = parsed(answer);
    if (!reply.isObject()) {
        std::abort();
    }
    const std::string frame = ZQGateway::encodeMediaFrame(answer);
    if (ZQGateway::decodeMediaFrameLength(reinterpret_cast<const unsigned char*>(frame.data())) != answer.size() ||
        frame.compare(ZQGateway::kMediaFrameHeader, std::string::npos, answer) != 0) {
        std::abort();
    }
    const bool refusedAsMalformed = reply.isMember("statusCode") && reply["statusCode"] == mediad::refusedMalformed;
    if (refusedAsMalformed) {
        return 0;
    }
    const std::string reencoded = Json::FastWriter().write(parsed(command));
    if (commands().answer(reencoded) != answer) {
        std::abort();  // the re-encoded command means something else to the daemon
    }
    return 0;
}
