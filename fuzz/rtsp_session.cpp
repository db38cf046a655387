// The RTSP requests a simulated device reads from its clients (relayed to it by zqmediad), fed
// as a client's byte stream in chunks. A session never uses more bytes than it was given, every
// answer it writes starts with a status line, and it writes no more answer heads than the
// request heads it used up (a body length must never move it backwards into a head).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>

#include "PcmuTone.h"
#include "RtspSession.h"

namespace {

const devsim::StreamSource& source() {
    static const devsim::StreamSource kSource {
        devsim::DeviceSpec {devsim::kTarn, "SIM0001", "Simulated camera 1", 1, 18080, 18554, 440},
        devsim::pcmuToneSecond(440)};
    return kSource;
}

size_t count(const std::string& text, const char* what) {
    size_t found = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
        ++found;
    }
    return found;
}

}  // namespace

// Input: the byte stream; each 0xff byte ends one read (as a socket delivers bytes in pieces).
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::mt19937 random(7);
    devsim::RtspSession session(source(), random);
    std::string pending;
    const std::string stream(reinterpret_cast<const char*>(data), size);
    for (size_t start = 0; start <= stream.size();) {
        const size_t end = std::min(stream.find('\xff', start), stream.size());
        pending += stream.substr(start, end - start);
        start = end + 1;
        std::string output;
        bool close = false;
        const size_t used = session.receive(pending.data(), pending.size(), output, close);
        if (used > pending.size() || (!output.empty() && output.compare(0, 9, "RTSP/1.0 ") != 0) ||
            count(output, "\r\n\r\n") > count(pending.substr(0, used), "\r\n\r\n")) {
            std::abort();
        }
        pending.erase(0, used);
        if (session.playing()) {
            session.appendPacket(output);
        }
        if (close) {
            break;
        }
    }
    return 0;
}
