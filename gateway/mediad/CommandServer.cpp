#include "CommandServer.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include "AcceptPending.h"
#include "MediadLog.h"
#include "UnixSocketPath.h"

namespace mediad {

CommandServer::~CommandServer() {
    if (fd_.valid()) {
        ::unlink(path_.c_str());
    }
}

bool CommandServer::listen(const std::string& path, std::string& error) {
    UniqueFd fd = gwio::listenOnUnixSocket(path, SOCK_NONBLOCK, error);
    if (!fd.valid()) {
        return false;
    }
    auto watch = std::make_unique<Watch>(loop_, fd.get(), [this](uint32_t) { acceptClients(); });
    if (!watch->setEvents(EPOLLIN)) {
        error = "cannot watch " + path;
        ::unlink(path.c_str());
        return false;
    }
    path_ = path;
    fd_ = std::move(fd);
    watch_ = std::move(watch);
    return true;
}

void CommandServer::acceptClients() {
    acceptPending(
        fd_.get(), kAcceptsPerWakeup,
        [this](UniqueFd client) {
            if (clients_.size() >= maxClients_) {
                MEDIAD_LOG(gwlog::kWarning, "command client turned away: %zu clients already connected",
                           clients_.size());
                return;
            }
            const uint64_t id = nextId_++;
            auto connection = std::make_unique<CommandConnection>(
                loop_, commands_, std::move(client), [this, id] { loop_.post([this, id] { clients_.erase(id); }); });
            CommandConnection& started = *connection;
            clients_.emplace(id, std::move(connection));
            started.start();
        },
        "the command socket");
}

}  // namespace mediad
