// Connections to the devices, kept open between forwarded requests. Opening a TCP connection
// for every request cost the front end (and the device) more than the rest of the forwarding.
// A device serves only a few connections at once, so only a few idle ones are kept per device,
// and none long enough for the device to drop it first.
#pragma once

#include <httplib.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace gatewayd {

class DeviceConnections {
public:
    struct Lease {
        std::unique_ptr<httplib::Client> client;  // null when the address is unusable
        bool reused;                              // the connection served an earlier request
    };

    // An idle connection to the address ("http://host:port"), or a new client for it.
    Lease take(const std::string& address);
    // A fresh client, not from the idle ones; null when the address is unusable.
    static std::unique_ptr<httplib::Client> open(const std::string& address);
    // Keeps the client's connection for a later request if it is still open and there is room.
    void giveBack(const std::string& address, std::unique_ptr<httplib::Client> client);

private:
    struct Idle {
        std::unique_ptr<httplib::Client> client;
        std::chrono::steady_clock::time_point since;
    };

    std::mutex mutex_;
    std::unordered_map<std::string, std::vector<Idle>> idle_;
};

}  // namespace gatewayd
