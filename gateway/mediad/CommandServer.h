// The command socket: a Unix-domain stream socket that any number of driver clients (up to a
// limit) connect to at once.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include "CommandConnection.h"
#include "EventLoop.h"
#include "MediaCommands.h"
#include "UniqueFd.h"

namespace mediad {

using gwio::EventLoop;
using gwio::UniqueFd;
using gwio::Watch;

class CommandServer {
public:
    CommandServer(EventLoop& loop, MediaCommands& commands, size_t maxClients)
        : loop_(loop), commands_(commands), maxClients_(maxClients) {}
    ~CommandServer();

    // Listens at path, replacing a socket file nobody serves any more; false, with error set,
    // when another daemon serves it or the socket cannot be made.
    bool listen(const std::string& path, std::string& error);

private:
    void acceptClients();

    EventLoop& loop_;
    MediaCommands& commands_;
    const size_t maxClients_;
    std::string path_;
    UniqueFd fd_;
    std::unique_ptr<Watch> watch_;
    uint64_t nextId_ = 0;
    std::unordered_map<uint64_t, std::unique_ptr<CommandConnection>> clients_;
};

}  // namespace mediad
