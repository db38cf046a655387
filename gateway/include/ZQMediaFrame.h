// Reference gateway: how commands travel between the driver (libDriverMgr) and the media daemon.
//
// The daemon listens on the Unix-domain stream socket run/media.sock in the gateway home. Each
// command is one frame: a 4-byte big-endian length, then that many bytes of JSON text. The daemon
// answers every command frame with one answer frame, in order, on the same connection; a client
// may keep the connection for many commands. Frames longer than kMaxMediaFrame are refused and
// the connection closed.
#pragma once

#include <cstdint>
#include <string>

namespace ZQGateway {

constexpr const char* kMediaSocketPath = "run/media.sock";  // relative to the gateway home
constexpr uint32_t kMaxMediaFrame = 1u << 20;
constexpr size_t kMediaFrameHeader = 4;

inline std::string encodeMediaFrame(const std::string& payload) {
    const auto length = static_cast<uint32_t>(payload.size());
    std::string frame;
    frame.reserve(kMediaFrameHeader + payload.size());
    for (int shift = 24; shift >= 0; shift -= 8) {
        frame.push_back(static_cast<char>((length >> shift) & 0xff));
    }
    frame += payload;
    return frame;
}

// The payload length announced by a frame header of kMediaFrameHeader bytes.
inline uint32_t decodeMediaFrameLength(const unsigned char* header) {
    return (uint32_t(header[0]) << 24) | (uint32_t(header[1]) << 16) | (uint32_t(header[2]) << 8) | uint32_t(header[3]);
}

}  // namespace ZQGateway
