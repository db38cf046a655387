#include "AdmissionServer.h"

#include <event2/event.h>
#include <event2/listener.h>
#include <event2/thread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "AdmissionRequestReader.h"
#include "ByteBuffer.h"
#include "UniqueFd.h"
#include "UnixSocketPath.h"

namespace gatewayd {
namespace {

// nginx keeps its connections for 10 s at most; waiting longer leaves the closing to nginx, so
// that it never sends into a connection being closed.
constexpr timeval kIdleTimeout = {15, 0};
// nginx opens at most its upstream's max_conns (96). Whatever else fills the rest cannot lock
// nginx out: a new connection closes the one idle longest.
constexpr size_t kMaxConnections = 256;
constexpr size_t kReadBytes = 16 * 1024;

// stop() ends the loop from another thread: the loop must be told to wake.
event_base* newNotifiableBase() {
    static const bool threadsReady = evthread_use_pthreads() == 0;
    return threadsReady ? event_base_new() : nullptr;
}

// A header value that would break the answer's framing is dropped, as any HTTP server would.
bool printable(const std::string& text) { return text.find_first_of("\r\n") == std::string::npos; }

std::string answerText(const AdmissionAnswer& answer, bool keepAlive) {
    std::string out;
    out.reserve(256);  // an admission's answer, in one allocation
    out.append("HTTP/1.1 ").append(std::to_string(answer.status));
    out.append(answer.status == 204 ? " No Content\r\n" : " Refused\r\nContent-Length: 0\r\n");
    for (const auto& [name, value] : answer.headers) {
        if (printable(name) && printable(value)) {
            out.append(name).append(": ").append(value).append("\r\n");
        }
    }
    return out.append(keepAlive ? "\r\n" : "Connection: close\r\n\r\n");
}

// Removes the size bytes a peek returned from the socket: false when it fails.
bool takeBytes(int fd, char* buffer, size_t size) {
    while (size > 0) {
        const ssize_t n = ::recv(fd, buffer, size, 0);
        if (n <= 0 && !(n < 0 && errno == EINTR)) {
            return false;
        }
        size -= n > 0 ? static_cast<size_t>(n) : 0;
    }
    return true;
}

}  // namespace

struct AdmissionServer::Connection {
    Connection(AdmissionServer& owner, int socket) : server(owner), fd(socket) {}

    AdmissionServer& server;
    gwio::UniqueFd fd;
    std::unique_ptr<event, void (*)(event*)> reading {nullptr, event_free};
    std::unique_ptr<event, void (*)(event*)> writing {nullptr, event_free};
    AdmissionRequestReader reader;
    gwio::ByteBuffer out {0};  // answers the socket has not taken yet; appends ignore the capacity
    bool closing = false;      // the last answer is in `out`
    std::list<std::unique_ptr<Connection>>::iterator place;
};

AdmissionServer::AdmissionServer(const TelmiLibrary& library)
    : library_(library), base_(newNotifiableBase(), event_base_free), listener_(nullptr, evconnlistener_free) {}

AdmissionServer::~AdmissionServer() {
    stop();
    connections_.clear();  // their events go before the loop they belong to
    listener_.reset();
    if (!path_.empty()) {
        ::unlink(path_.c_str());
    }
}

bool AdmissionServer::bindUnix(const std::string& path, std::string& error) {
    if (base_ == nullptr) {
        error = "the admission check's event loop cannot be set up";
        return false;
    }
    gwio::UniqueFd fd = gwio::listenOnUnixSocket(path, SOCK_NONBLOCK, error);
    if (!fd.valid()) {
        return false;
    }
    listener_.reset(
        evconnlistener_new(base_.get(), accepted, this, LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC, -1, fd.get()));
    if (listener_ == nullptr) {
        error = "the admission check cannot accept on " + path;
        return false;
    }
    fd.release();  // the listener owns it now
    path_ = path;
    return true;
}

void AdmissionServer::start() {
    loop_ = std::thread([this] { event_base_dispatch(base_.get()); });
}

void AdmissionServer::stop() {
    if (loop_.joinable()) {
        // Unlike a break, an exit is an event of the loop's own: one asked for before the loop
        // began to run is not lost.
        event_base_loopexit(base_.get(), nullptr);
        loop_.join();
    }
}

void AdmissionServer::accepted(evconnlistener*, int fd, sockaddr*, int, void* server) {
    auto& self = *static_cast<AdmissionServer*>(server);
    auto connection = std::make_unique<Connection>(self, fd);  // non-blocking, as libevent accepts
    Connection* raw = connection.get();
    raw->reading.reset(event_new(self.base_.get(), fd, EV_READ | EV_PERSIST, readable, raw));
    raw->writing.reset(event_new(self.base_.get(), fd, EV_WRITE, writable, raw));
    if (raw->reading == nullptr || raw->writing == nullptr || event_add(raw->reading.get(), &kIdleTimeout) != 0) {
        return;  // closed as it goes
    }
    if (self.connections_.size() >= kMaxConnections) {
        self.close(*self.connections_.back());
    }
    raw->place = self.connections_.insert(self.connections_.begin(), std::move(connection));
}

void AdmissionServer::readable(int fd, short what, void* connection) {
    Connection& self = *static_cast<Connection*>(connection);
    if ((what & EV_TIMEOUT) != 0) {
        self.server.close(self);
        return;
    }
    // The question is looked at, answered, and only then taken off the socket. Taking it tells
    // nginx's worker that its socket has room to write: a wake-up of that worker for nothing,
    // unless the answer is already there to be read with it.
    char data[kReadBytes];
    const ssize_t n = ::recv(fd, data, sizeof(data), MSG_PEEK);
    if (n > 0) {
        auto& connections = self.server.connections_;
        connections.splice(connections.begin(), connections, self.place);
        self.server.answer(self, data, static_cast<size_t>(n));
        self.out.drainTo(fd);  // what the socket does not take now, flush() sees to
        if (!takeBytes(fd, data, static_cast<size_t>(n))) {
            self.server.close(self);
            return;
        }
        self.server.flush(self);
    } else if (n == 0 || (errno != EAGAIN && errno != EINTR)) {
        self.server.close(self);
    }
}

void AdmissionServer::answer(Connection& connection, const char* data, size_t size) {
    while (size > 0 && !connection.closing) {
        size_t consumed = 0;
        const AdmissionRequestReader::State state = connection.reader.feed(data, size, consumed);
        data += consumed;
        size -= consumed;
        if (state == AdmissionRequestReader::State::incomplete) {
            break;
        }
        if (state == AdmissionRequestReader::State::refused) {
            AdmissionAnswer refusal;
            refusal.status = connection.reader.refusalStatus();
            connection.out.append(answerText(refusal, false));
            connection.closing = true;
            break;
        }
        connection.closing = !connection.reader.keepAlive();
        connection.out.append(answerText(decideAdmission(library_, connection.reader.request()), !connection.closing));
        connection.reader.next();
    }
}

// While an answer waits for the socket, nothing more is read: a peer that does not read its
// answers cannot make them pile up here. False when the connection is gone.
bool AdmissionServer::flush(Connection& connection) {
    while (!connection.out.empty()) {
        const gwio::IoResult result = connection.out.drainTo(connection.fd.get());
        if (result == gwio::IoResult::wouldBlock) {
            event_del(connection.reading.get());
            event_add(connection.writing.get(), &kIdleTimeout);
            return true;
        }
        if (result != gwio::IoResult::progress) {
            close(connection);
            return false;
        }
    }
    if (connection.closing) {
        close(connection);
        return false;
    }
    return true;
}

void AdmissionServer::writable(int, short what, void* connection) {
    Connection& self = *static_cast<Connection*>(connection);
    if ((what & EV_TIMEOUT) != 0) {
        self.server.close(self);
        return;
    }
    if (self.server.flush(self) && self.out.empty()) {
        event_add(self.reading.get(), &kIdleTimeout);
    }
}

void AdmissionServer::close(Connection& connection) { connections_.erase(connection.place); }

}  // namespace gatewayd
