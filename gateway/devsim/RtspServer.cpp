#include "RtspServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

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

RtspServer::Client::Client(RtspServer& server, const Source& source, gwio::UniqueFd socket)
    : source(source),
      socket(std::move(socket)),
      watch(server.loop_, this->socket.get(), [&server, this](uint32_t events) { server.serve(*this, events); }),
      session(source.stream, server.random_),
      input(kInputCapacity),
      output(kMaxPendingOutput) {}

RtspServer::RtspServer(const std::vector<DeviceSpec>& devices, size_t maxClients)
    : loop_([](const std::string& what) { log(LogLevel::error, "RTSP sources: %s", what.c_str()); }),
      maxClients_(maxClients),
      random_(std::random_device {}()) {
    // Filled once: clients refer to their source for as long as they live.
    sources_.reserve(devices.size());
    for (const auto& device : devices) {
        sources_.push_back(Source {StreamSource {device, pcmuToneSecond(device.toneHz)}, {}, {}});
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
        source.watch =
            std::make_unique<gwio::Watch>(loop_, source.listener.get(), [this, &source](uint32_t) { accept(source); });
    }
    wake_.reset(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    pacer_.reset(::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
    if (!loop_.valid() || !wake_.valid() || !pacer_.valid()) {
        error = std::string("epoll, eventfd or timerfd: ") + std::strerror(errno);
        return false;
    }
    wakeWatch_ = std::make_unique<gwio::Watch>(loop_, wake_.get(), [this](uint32_t) { loop_.stop(); });
    pacerWatch_ = std::make_unique<gwio::Watch>(loop_, pacer_.get(), [this](uint32_t) {
        uint64_t expirations = 0;
        if (::read(pacer_.get(), &expirations, sizeof(expirations)) < 0 && errno != EAGAIN) {
            log(LogLevel::error, "RTSP pacing timer: %s", std::strerror(errno));
        }
        pace();
    });
    bool watched = wakeWatch_->setEvents(EPOLLIN) && pacerWatch_->setEvents(EPOLLIN);
    for (auto& source : sources_) {
        watched = watched && source.watch->setEvents(EPOLLIN);
    }
    if (!watched) {
        error = std::string("the RTSP sockets cannot be watched: ") + std::strerror(errno);
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
    if (!loop_.run()) {
        log(LogLevel::error, "RTSP sources stopped: the event loop failed");
    }
    log(LogLevel::info, "RTSP sources stopped with %zu clients connected", clients_.size());
    clients_.clear();
}

void RtspServer::pace() {
    const Clock::time_point now = Clock::now();
    std::optional<Clock::time_point> next;
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
            } else {
                send(client);
            }
            watch(client);
            if (client.gone) {
                continue;
            }
        }
        next = next ? std::min(*next, client.nextPacket) : client.nextPacket;
    }
    // A zero time would disarm the timer: a packet due already fires in a nanosecond.
    const auto wait = next ? std::max(std::chrono::nanoseconds(1), *next - now) : std::chrono::nanoseconds(0);
    itimerspec due {};
    due.it_value.tv_sec = static_cast<time_t>(wait.count() / 1000000000);
    due.it_value.tv_nsec = static_cast<long>(wait.count() % 1000000000);
    if (::timerfd_settime(pacer_.get(), 0, &due, nullptr) != 0) {
        log(LogLevel::error, "RTSP pacing timer: %s", std::strerror(errno));
    }
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
        clients_.push_back(std::make_unique<Client>(*this, source, std::move(socket)));
        watch(*clients_.back());
        log(LogLevel::info, "device %s: RTSP client connected", source.stream.device.deviceID.c_str());
    }
}

void RtspServer::serve(Client& client, uint32_t events) {
    if (events & (EPOLLIN | EPOLLHUP | EPOLLERR)) {
        receive(client);
    }
    if ((events & EPOLLOUT) && !client.gone) {
        send(client);
    }
    watch(client);
}

void RtspServer::watch(Client& client) {
    if (client.gone) {
        if (client.watch.events() != 0) {
            client.watch.stop();
            loop_.post([this] {
                clients_.erase(std::remove_if(clients_.begin(), clients_.end(), [](const auto& c) { return c->gone; }),
                               clients_.end());
            });
        }
        return;
    }
    const bool reading = !client.closing && !client.input.full();
    const uint32_t events = (reading ? uint32_t {EPOLLIN} : 0) | (client.output.empty() ? 0 : uint32_t {EPOLLOUT});
    if (!client.watch.setEvents(events) && events != 0) {
        drop(client, "its socket cannot be watched");
        watch(client);
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
        pace();
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
