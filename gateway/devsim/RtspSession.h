// One RTSP 1.0 conversation with a client of a simulated device: answers OPTIONS, DESCRIBE,
// SETUP (RTP/AVP/TCP interleaved only), PLAY, PAUSE, TEARDOWN and GET_PARAMETER, and frames
// the device's tone as interleaved RTP packets (PCMU, payload type 0, 20 ms each).
// Knows nothing of sockets: bytes in, bytes out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "DeviceSpec.h"

namespace devsim {

// The device side of a stream: who is speaking and the second of tone it loops.
struct StreamSource {
    DeviceSpec device;
    std::vector<uint8_t> toneSecond;
};

class RtspSession {
public:
    // Requests longer than this (head and body) end the connection.
    static constexpr size_t kMaxRequest = 8192;
    static constexpr int kPacketMilliseconds = 20;

    RtspSession(const StreamSource& source, std::mt19937& random);

    // Consumes the complete requests (and frames the client interleaves, such as RTCP reports)
    // at the start of data, appending the answers to output; returns how many bytes it used.
    // Sets close when the connection should end once output is sent.
    size_t receive(const char* data, size_t size, std::string& output, bool& close);
    bool playing() const { return playing_; }
    // The next 20 ms of the tone as one interleaved RTP packet.
    void appendPacket(std::string& output);

private:
    struct Request {
        std::string method, uri, version;
        std::map<std::string, std::string> headers;  // names in lower case
        std::string header(const std::string& name) const;
    };
    struct Answer {
        int status = 200;
        std::vector<std::string> headers;
        std::string body;
        bool close = false;
    };

    Answer answer(const Request& request);
    Answer setup(const Request& request);
    bool sameSession(const Request& request) const;
    std::string sdp() const;

    const StreamSource& source_;
    const std::string sessionID_;
    const uint32_t ssrc_;
    uint16_t sequence_;
    uint32_t timestamp_;
    uint64_t packetsSent_ = 0;
    int channel_ = 0;
    bool setUp_ = false;
    bool playing_ = false;
    bool marker_ = false;
    std::string trackUri_;
};

}  // namespace devsim
