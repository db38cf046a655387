#include "RtspSession.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "PcmuTone.h"

namespace devsim {

namespace {

constexpr size_t kSamplesPerPacket = kPcmuSampleRate * RtspSession::kPacketMilliseconds / 1000;
constexpr int kSessionTimeoutSeconds = 60;
constexpr const char* kPublic = "Public: OPTIONS, DESCRIBE, SETUP, PLAY, PAUSE, TEARDOWN, GET_PARAMETER";

const char* reason(int status) {
    switch (status) {
        case 200: return "OK";
        case 400: return "Bad Request";
        case 454: return "Session Not Found";
        case 455: return "Method Not Valid in This State";
        case 461: return "Unsupported Transport";
        case 501: return "Not Implemented";
        case 505: return "RTSP Version Not Supported";
        default: return "Error";
    }
}

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

std::string trimmed(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) {
        text.remove_prefix(1);
    }
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) {
        text.remove_suffix(1);
    }
    return std::string(text);
}

std::string hex(uint64_t value, int digits) {
    char text[17];
    std::snprintf(text, sizeof(text), "%0*llx", digits, static_cast<unsigned long long>(value));
    return text;
}

void putBigEndian(std::string& out, uint32_t value, int bytes) {
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
        out.push_back(static_cast<char>((value >> shift) & 0xff));
    }
}

// The request head "METHOD uri RTSP/1.0\r\nName: value\r\n..." without its blank line.
bool parseHead(std::string_view head, std::string& method, std::string& uri, std::string& version,
               std::map<std::string, std::string>& headers) {
    size_t lineEnd = head.find("\r\n");
    const std::string_view first = head.substr(0, lineEnd);
    const size_t space1 = first.find(' ');
    const size_t space2 = space1 == std::string_view::npos ? space1 : first.find(' ', space1 + 1);
    if (space2 == std::string_view::npos) {
        return false;
    }
    method = std::string(first.substr(0, space1));
    uri = std::string(first.substr(space1 + 1, space2 - space1 - 1));
    version = std::string(first.substr(space2 + 1));
    while (lineEnd != std::string_view::npos) {
        const size_t start = lineEnd + 2;
        lineEnd = head.find("\r\n", start);
        const size_t length = lineEnd == std::string_view::npos ? head.npos : lineEnd - start;
        const std::string_view line = head.substr(start, length);
        const size_t colon = line.find(':');
        if (colon == std::string_view::npos || colon == 0) {
            return false;
        }
        headers[lowered(std::string(line.substr(0, colon)))] = trimmed(line.substr(colon + 1));
    }
    return true;
}

}  // namespace

RtspSession::RtspSession(const StreamSource& source, std::mt19937& random)
    : source_(source),
      sessionID_(hex((static_cast<uint64_t>(random()) << 32) | random(), 16)),
      ssrc_(static_cast<uint32_t>(random())),
      sequence_(static_cast<uint16_t>(random())),
      timestamp_(static_cast<uint32_t>(random())) {}

std::string RtspSession::Request::header(const std::string& name) const {
    const auto found = headers.find(name);
    return found == headers.end() ? "" : found->second;
}

size_t RtspSession::receive(const char* data, size_t size, std::string& output, bool& close) {
    const std::string_view input(data, size);
    size_t used = 0;
    close = false;
    while (used < size && !close) {
        const std::string_view rest = input.substr(used);
        if (rest[0] == '$') {  // a frame the client interleaves (its RTCP reports): skipped
            if (rest.size() < 4) {
                break;
            }
            const size_t length = (static_cast<uint8_t>(rest[2]) << 8) | static_cast<uint8_t>(rest[3]);
            if (rest.size() < 4 + length) {
                break;
            }
            used += 4 + length;
            continue;
        }
        if (rest[0] == '\r' || rest[0] == '\n') {
            ++used;
            continue;
        }
        const size_t headEnd = rest.find("\r\n\r\n");
        if (headEnd == std::string_view::npos) {
            close = rest.size() > kMaxRequest;
            break;
        }
        Request request;
        Answer reply;
        size_t bodyLength = 0;
        if (!parseHead(rest.substr(0, headEnd), request.method, request.uri, request.version, request.headers)) {
            reply.status = 400;
            reply.close = true;
        } else {
            const std::string length = request.header("content-length");
            bodyLength = length.empty() ? 0 : std::strtoul(length.c_str(), nullptr, 10);
        }
        // Compared alone first: a length near 2^64 would wrap the sum to a small number.
        if (bodyLength > kMaxRequest || headEnd + 4 + bodyLength > kMaxRequest) {
            close = true;
            break;
        }
        if (rest.size() < headEnd + 4 + bodyLength) {
            break;
        }
        used += headEnd + 4 + bodyLength;
        if (!reply.close) {
            reply = answer(request);
        }
        output += "RTSP/1.0 " + std::to_string(reply.status) + " " + reason(reply.status) + "\r\n";
        const std::string cseq = request.header("cseq");
        if (!cseq.empty()) {
            output += "CSeq: " + cseq + "\r\n";
        }
        output += "Server: zqdevsim\r\n";
        for (const auto& header : reply.headers) {
            output += header + "\r\n";
        }
        if (!reply.body.empty()) {
            output += "Content-Length: " + std::to_string(reply.body.size()) + "\r\n";
        }
        output += "\r\n" + reply.body;
        close = reply.close;
    }
    return used;
}

RtspSession::Answer RtspSession::answer(const Request& request) {
    Answer reply;
    if (request.header("cseq").empty()) {
        reply.status = 400;
        reply.close = true;
        return reply;
    }
    if (request.version != "RTSP/1.0") {
        reply.status = 505;
        return reply;
    }
    const std::string& method = request.method;
    if (method == "SETUP") {
        return setup(request);
    }
    if (method == "OPTIONS") {
        reply.headers.push_back(kPublic);
        return reply;
    }
    if (method == "DESCRIBE") {
        const std::string base = request.uri.empty() || request.uri.back() == '/' ? request.uri : request.uri + "/";
        reply.headers.push_back("Content-Base: " + base);
        reply.headers.push_back("Content-Type: application/sdp");
        reply.body = sdp();
        return reply;
    }
    const bool known = method == "PLAY" || method == "PAUSE" || method == "TEARDOWN" || method == "GET_PARAMETER";
    if (!known) {
        reply.status = 501;
        reply.headers.push_back(kPublic);
        return reply;
    }
    // A keep-alive may come before SETUP, without a session; anything naming a session must
    // name ours.
    const bool keepAlive = method == "GET_PARAMETER" && request.header("session").empty();
    if (!keepAlive && !sameSession(request)) {
        reply.status = setUp_ ? 454 : 455;
        return reply;
    }
    if (setUp_) {
        reply.headers.push_back("Session: " + sessionID_);
    }
    if (method == "PLAY") {
        if (!playing_) {
            playing_ = true;
            marker_ = true;
        }
        reply.headers.push_back("Range: npt=0.000-");
        reply.headers.push_back("RTP-Info: url=" + trackUri_ + ";seq=" + std::to_string(sequence_) +
                                ";rtptime=" + std::to_string(timestamp_));
    } else if (method == "PAUSE") {
        playing_ = false;
    } else if (method == "TEARDOWN") {
        playing_ = false;
        reply.close = true;
    }
    return reply;
}

RtspSession::Answer RtspSession::setup(const Request& request) {
    Answer reply;
    if (setUp_ && !sameSession(request)) {
        reply.status = 454;
        return reply;
    }
    const std::string transport = request.header("transport");
    if (transport.find("RTP/AVP/TCP") == std::string::npos) {
        reply.status = 461;  // clients such as ffplay then retry over TCP
        return reply;
    }
    const size_t interleaved = transport.find("interleaved=");
    if (interleaved != std::string::npos) {
        channel_ = std::clamp(std::atoi(transport.c_str() + interleaved + 12), 0, 254);
    }
    setUp_ = true;
    trackUri_ = request.uri;
    reply.headers.push_back("Transport: RTP/AVP/TCP;unicast;interleaved=" + std::to_string(channel_) + "-" +
                            std::to_string(channel_ + 1) + ";ssrc=" + hex(ssrc_, 8));
    reply.headers.push_back("Session: " + sessionID_ + ";timeout=" + std::to_string(kSessionTimeoutSeconds));
    return reply;
}

bool RtspSession::sameSession(const Request& request) const {
    const std::string given = request.header("session");
    return setUp_ && trimmed(given.substr(0, given.find(';'))) == sessionID_;
}

std::string RtspSession::sdp() const {
    return "v=0\r\n"
           "o=- " +
           std::to_string(ssrc_) +
           " 1 IN IP4 127.0.0.1\r\n"
           "s=" +
           source_.device.name +
           "\r\n"
           "i=" +
           source_.device.deviceID + ": " + std::to_string(source_.device.toneHz) +
           " Hz tone\r\n"
           "c=IN IP4 0.0.0.0\r\n"
           "t=0 0\r\n"
           "a=control:*\r\n"
           "m=audio 0 RTP/AVP 0\r\n"
           "a=rtpmap:0 PCMU/8000\r\n"
           "a=ptime:20\r\n"
           "a=control:trackID=0\r\n";
}

void RtspSession::appendPacket(std::string& output) {
    constexpr size_t kRtpHeader = 12;
    const size_t offset = (packetsSent_ * kSamplesPerPacket) % source_.toneSecond.size();
    output.push_back('$');
    output.push_back(static_cast<char>(channel_));
    putBigEndian(output, kRtpHeader + kSamplesPerPacket, 2);
    output.push_back(static_cast<char>(0x80));                   // version 2
    output.push_back(static_cast<char>(marker_ ? 0x80 : 0x00));  // payload type 0 (PCMU)
    putBigEndian(output, sequence_, 2);
    putBigEndian(output, timestamp_, 4);
    putBigEndian(output, ssrc_, 4);
    output.append(reinterpret_cast<const char*>(source_.toneSecond.data()) + offset, kSamplesPerPacket);
    marker_ = false;
    ++sequence_;
    timestamp_ += kSamplesPerPacket;
    ++packetsSent_;
}

}  // namespace devsim
