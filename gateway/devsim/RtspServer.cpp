#include "RtspServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "DevsimLog.h"
#include "PcmuTone.h"

namespace devsim {

namespace {

constexpr size_t kInputCapacity = 2 * RtspSession::kMaxRequest;
constexpr int kAcceptsPerWakeUp = 16;
constexpr auto kPacketInterval = std::chrono::milliseconds(RtspSession::kPacketMilliseconds);
// After a stall longer than this (a suspended process), a stream resumes instead of bursting.
constexpr auto kMaxLag = std::chrono::seconds(1);

gwio::UniqueFd listenOnLoopback(int port, std::string& error) {
    gwio::UniqueFd socket(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int yes = 1;
    if (!socket.valid() || ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes)) != 0 ||
        ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(socket.get(), SOMAXCONN) != 0) {
        error = std::strerror(errno);
        return {};
    }
    return socket;
}

}  // namespace

RtspServer::Client::Client(const Source& source, gwio::UniqueFd socket, std::mt19937& random)
    : source(source),
      socket(std::move(socket)),
      session(source.stream, random),
      input(kInputCapacity),
      output(kMaxPendingOutput) {}

RtspServer::RtspServer(const std::vector<DeviceSpec>& devices, size_t maxClients)
    : maxClients_(maxClients), random_(std::random_device {}()) {
    // Filled once: clients refer to their source for as long as they live.
    sources_.reserve(devices.size());
    for (const auto& device : devices) {
        sources_.push_back(Source {StreamSource {device, pcmuToneSecond(device.toneHz)}, {}});
    }
}

RtspServer::~RtspServer() { stop(); }

bool RtspServer::start(std::string& error) {
    for (auto& source : sources_) {
        std::string why;
        source.listener = listenOnLoopback(source.stream.device.rtspPort, why);
        if (!source.listener.valid()) {
            error = "device " + source.stream.device.deviceID + ": RTSP port " +
                    std::to_string(source.stream.device.rtspPort) + " cannot be listened on: " + why;
            return false;
        }
    }
    wake_.reset(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    if (!wake_.valid()) {
        error = std::string("eventfd: ") + std::strerror(errno);
        return false;
    }
    thread_ = std::thread(&RtspServer::run, this);
    return true;
}

void RtspServer::stop() {
    if (thread_.joinable()) {
        const uint64_t one = 1;
        if (::write(wake_.get(), &one, sizeof(one)) != sizeof(one)) {
            log(LogLevel::error, "cannot wake the RTSP thread: %s", std::strerror(errno));
        }
        thread_.join();
    }
}

void RtspServer::run() {
    std::vector<pollfd> watched;
    while (true) {
        const int timeout = pace(Clock::now());
        clients_.erase(std::remove_if(clients_.begin(), clients_.end(), [](const auto& c) { return c->gone; }),
                       clients_.end());
        watched.clear();
        watched.push_back({wake_.get(), POLLIN, 0});
        for (const auto& source : sources_) {
            watched.push_back({source.listener.get(), POLLIN, 0});
        }
        for (const auto& client : clients_) {
            const bool reading = !client->closing && !client->input.full();
            const short events = static_cast<short>((reading ? POLLIN : 0) | (client->output.empty() ? 0 : POLLOUT));
            watched.push_back({client->socket.get(), events, 0});
        }
        if (::poll(watched.data(), watched.size(), timeout) < 0) {
            if (errno == EINTR) {
                continue;
            }
            log(LogLevel::error, "RTSP sources stopped: poll failed: %s", std::strerror(errno));
            break;
        }
        if (watched[0].revents != 0) {
            break;
        }
        // Clients accepted now are appended behind the ones polled.
        const size_t polled = clients_.size();
        for (size_t i = 0; i < sources_.size(); ++i) {
            if (watched[1 + i].revents & POLLIN) {
                accept(sources_[i]);
            }
        }
        for (size_t i = 0; i < polled; ++i) {
            const short events = watched[1 + sources_.size() + i].revents;
            Client& client = *clients_[i];
            if (events & (POLLIN | POLLHUP | POLLERR)) {
                receive(client);
            }
            if ((events & POLLOUT) && !client.gone) {
                send(client);
            }
        }
    }
    log(LogLevel::info, "RTSP sources stopped with %zu clients connected", clients_.size());
    clients_.clear();
}

int RtspServer::pace(Clock::time_point now) {
    int timeout = -1;
    for (auto& pointer : clients_) {
        Client& client = *pointer;
        if (client.gone || client.closing || !client.session.playing()) {
            continue;
        }
        if (now - client.nextPacket > kMaxLag) {
            client.nextPacket = now;
        }
        std::string packets;
        for (; client.nextPacket <= now; client.nextPacket += kPacketInterval) {
            client.session.appendPacket(packets);
        }
        if (!packets.empty()) {
            client.output.append(packets);
            if (client.output.size() > kMaxPendingOutput) {
                drop(client, "it does not keep up with the stream");
                continue;
            }
            send(client);
        }
        const auto wait = std::chrono::ceil<std::chrono::milliseconds>(client.nextPacket - now).count();
        timeout = timeout < 0 ? static_cast<int>(wait) : std::min(timeout, static_cast<int>(wait));
    }
    return timeout;
}

void RtspServer::accept(const Source& source) {
    for (int i = 0; i < kAcceptsPerWakeUp; ++i) {
        gwio::UniqueFd socket(::accept4(source.listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!socket.valid()) {
            if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
                log(LogLevel::warning, "device %s: RTSP accept failed: %s", source.stream.device.deviceID.c_str(),
                    std::strerror(errno));
            }
            return;
        }
        if (clients_.size() >= maxClients_) {
            log(LogLevel::warning, "device %s: RTSP client refused: %zu clients already connected",
                source.stream.device.deviceID.c_str(), clients_.size());
            continue;
        }
        const int yes = 1;
        ::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &yes, sizeof(yes));
        clients_.push_back(std::make_unique<Client>(source, std::move(socket), random_));
        log(LogLevel::info, "device %s: RTSP client connected", source.stream.device.deviceID.c_str());
    }
}

void RtspServer::receive(Client& client) {
    const gwio::IoResult result = client.input.fillFrom(client.socket.get());
    if (result == gwio::IoResult::closed) {
        log(LogLevel::info, "device %s: RTSP client left", client.source.stream.device.deviceID.c_str());
        client.gone = true;
        return;
    }
    if (result == gwio::IoResult::failed) {
        drop(client, std::strerror(errno));
        return;
    }
    const bool wasPlaying = client.session.playing();
    std::string answers;
    bool close = false;
    client.input.consume(client.session.receive(client.input.data(), client.input.size(), answers, close));
    client.output.append(answers);
    if (!wasPlaying && client.session.playing()) {
        client.nextPacket = Clock::now();
        log(LogLevel::info, "device %s: RTSP client plays", client.source.stream.device.deviceID.c_str());
    }
    if (close) {
        client.closing = true;
    } else if (client.input.full()) {
        drop(client, "it sent a frame larger than the input buffer");
        return;
    }
    send(client);
}

void RtspServer::send(Client& client) {
    if (client.output.drainTo(client.socket.get()) == gwio::IoResult::failed) {
        drop(client, std::strerror(errno));
        return;
    }
    if (client.closing && client.output.empty()) {
        log(LogLevel::info, "device %s: RTSP session ended", client.source.stream.device.deviceID.c_str());
        client.gone = true;
    }
}

void RtspServer::drop(Client& client, const char* why) {
    log(LogLevel::warning, "device %s: RTSP client dropped: %s", client.source.stream.device.deviceID.c_str(), why);
    client.gone = true;
}

}  // namespace devsim
