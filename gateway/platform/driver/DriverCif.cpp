// Synchronous commands to the media daemon over its socket, framed as ZQMediaFrame.h says; one
// connection per command, so commands in flight never wait for each other.
//
// timeoutSec bounds the whole exchange, connection included; 0 means one second, the shortest
// limit (the library turns limits under 1000 ms into 0). reserved must be 0. The answer buffer
// holds the answer and a NUL after it (not counted in rspLen), so it can be logged as text.
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "DriverCif.h"
#include "ZQGatewayHome.h"
#include "ZQGatewayMedia.h"
#include "ZQMediaFrame.h"

namespace {

thread_local unsigned unansweredOnThisThread = 0;

using Deadline = std::chrono::steady_clock::time_point;

// Waits until fd is ready for events; false with the reason when the deadline passes first.
bool waitReady(int fd, short events, Deadline deadline, std::string& error) {
    for (;;) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            error = "no answer within the time limit";
            return false;
        }
        pollfd p {fd, events, 0};
        int n = ::poll(&p, 1, static_cast<int>(left.count()));
        if (n > 0) {
            return true;
        }
        if (n < 0 && errno != EINTR) {
            error = std::string("poll: ") + std::strerror(errno);
            return false;
        }
    }
}

bool sendAll(int fd, const std::string& bytes, Deadline deadline, std::string& error) {
    for (size_t done = 0; done < bytes.size();) {
        if (!waitReady(fd, POLLOUT, deadline, error)) {
            return false;
        }
        ssize_t n = ::send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n < 0 && (errno == EINTR || errno == EAGAIN)) {
            continue;
        }
        if (n <= 0) {
            error = std::string("send: ") + std::strerror(errno);
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

bool receiveAll(int fd, char* data, size_t size, Deadline deadline, std::string& error) {
    while (size > 0) {
        if (!waitReady(fd, POLLIN, deadline, error)) {
            return false;
        }
        ssize_t n = ::recv(fd, data, size, MSG_DONTWAIT);
        if (n < 0 && (errno == EINTR || errno == EAGAIN)) {
            continue;
        }
        if (n <= 0) {
            error = n == 0 ? "the daemon closed the connection" : std::string("recv: ") + std::strerror(errno);
            return false;
        }
        data += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

bool exchange(int fd, const std::string& command, std::string& answer, Deadline deadline, std::string& error) {
    if (command.size() > ZQGateway::kMaxMediaFrame) {
        error = "command too long";
        return false;
    }
    unsigned char header[ZQGateway::kMediaFrameHeader];
    if (!sendAll(fd, ZQGateway::encodeMediaFrame(command), deadline, error) ||
        !receiveAll(fd, reinterpret_cast<char*>(header), sizeof(header), deadline, error)) {
        return false;
    }
    const uint32_t length = ZQGateway::decodeMediaFrameLength(header);
    if (length > ZQGateway::kMaxMediaFrame) {
        error = "answer too long";
        return false;
    }
    answer.assign(length, '\0');
    return receiveAll(fd, answer.data(), length, deadline, error);
}

int fail(std::string* errMsg, const std::string& text) {
    ++unansweredOnThisThread;
    if (errMsg != nullptr) {
        *errMsg = text;
    }
    return -1;
}

}  // namespace

int DriverCif_InputCmdToMediaSyn(const char* cmd, int cmdLen, char** rsp, int* rspLen, std::string* errMsg,
                                 int reserved, int timeoutSec) {
    if (cmd == nullptr || cmdLen < 0 || rsp == nullptr || rspLen == nullptr || reserved != 0 || timeoutSec < 0) {
        return fail(errMsg, "bad argument");
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSec == 0 ? 1 : timeoutSec);
    const std::string path = ZQ_Gateway_HomePath(ZQGateway::kMediaSocketPath);
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof(address.sun_path)) {
        return fail(errMsg, "no usable media socket path '" + path + "'");
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return fail(errMsg, std::string("socket: ") + std::strerror(errno));
    }
    // A daemon that stopped accepting lets its backlog fill up, and connect then waits for room
    // as long as the send time limit allows.
    const auto left =
        std::chrono::duration_cast<std::chrono::microseconds>(deadline - std::chrono::steady_clock::now());
    const timeval limit {static_cast<time_t>(left.count() / 1000000), static_cast<suseconds_t>(left.count() % 1000000)};
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        int err = errno;
        ::close(fd);
        return fail(errMsg, "media daemon not reachable at " + path + ": " + std::strerror(err));
    }
    std::string answer, error;
    bool ok = exchange(fd, std::string(cmd, static_cast<size_t>(cmdLen)), answer, deadline, error);
    ::close(fd);
    if (!ok) {
        return fail(errMsg, "media daemon: " + error);
    }
    char* buffer = new char[answer.size() + 1];
    std::memcpy(buffer, answer.c_str(), answer.size() + 1);
    *rsp = buffer;
    *rspLen = static_cast<int>(answer.size());
    return 0;
}

void DriverCif_FreeBuffer(char* buf) { delete[] buf; }

unsigned ZQ_Gateway_UnansweredMediaCommands() { return unansweredOnThisThread; }
