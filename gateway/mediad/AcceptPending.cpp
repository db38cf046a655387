#include "AcceptPending.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "MediadLog.h"

namespace mediad {

namespace {

// One descriptor held in reserve for turning a client away when none is left.
UniqueFd& spareDescriptor() {
    static UniqueFd spare(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    return spare;
}

}  // namespace

void acceptPending(int listenFd, int limit, const std::function<void(UniqueFd)>& take, const char* what) {
    UniqueFd& spare = spareDescriptor();
    for (int taken = 0; taken < limit;) {
        UniqueFd client(::accept4(listenFd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (client.valid()) {
            ++taken;
            take(std::move(client));
            continue;
        }
        const int error = errno;
        if (error == EINTR || error == ECONNABORTED) {
            continue;
        }
        if ((error == EMFILE || error == ENFILE) && spare.valid()) {
            spare.reset();
            UniqueFd turnedAway(::accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC));
            turnedAway.reset();
            spare.reset(::open("/dev/null", O_RDONLY | O_CLOEXEC));
            MEDIAD_LOG(gwlog::kWarning, "client of %s turned away: out of file descriptors", what);
        } else if (error != EAGAIN && error != EWOULDBLOCK) {
            MEDIAD_LOG(gwlog::kWarning, "accept on %s failed: %s", what, std::strerror(error));
        }
        return;
    }
}

}  // namespace mediad
