// One TCP listener per device on its RTSP port, on all addresses. A device keeps its entry
// while its listener is down (the port could not be bound), so that its state can be reported
// and the listener re-opened later.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "EventLoop.h"
#include "UniqueFd.h"

namespace mediad {

using gwio::EventLoop;
using gwio::UniqueFd;
using gwio::Watch;

enum class ListenOutcome {
    listening,
    portTaken,  // another program, or another device's listener, holds the port
    failed,     // any other reason; the error text says which
};

class RtspListeners {
public:
    using AcceptHandler = std::function<void(UniqueFd client, const std::string& deviceIndex)>;

    RtspListeners(EventLoop& loop, AcceptHandler onAccept);

    // Makes the device listen on port: keeps a listener already there, moves one on another
    // port. error explains any outcome but listening.
    ListenOutcome open(const std::string& deviceIndex, uint16_t port, std::string& error);
    // Stops new connections to the device; relays already running go on.
    void close(const std::string& deviceIndex);

    bool has(const std::string& deviceIndex) const { return entries_.count(deviceIndex) != 0; }
    // The port of the device's entry; 0 when it has none.
    uint16_t port(const std::string& deviceIndex) const;
    // True only when the device's socket is bound and accepting connections right now.
    bool listening(const std::string& deviceIndex) const;
    size_t count() const { return entries_.size(); }
    // The devices that have an entry, in index order.
    std::vector<std::string> devices() const;

private:
    struct Entry {
        uint16_t port = 0;
        UniqueFd fd;  // invalid while down
        std::unique_ptr<Watch> watch;
    };

    ListenOutcome bindEntry(Entry& entry, const std::string& deviceIndex, std::string& error);
    void acceptClients(const std::string& deviceIndex, int listenFd);
    bool portUsedByOtherDevice(const std::string& deviceIndex, uint16_t port) const;

    EventLoop& loop_;
    AcceptHandler onAccept_;
    std::map<std::string, Entry> entries_;
};

}  // namespace mediad
