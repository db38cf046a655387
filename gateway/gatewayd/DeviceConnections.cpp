#include "DeviceConnections.h"

#include <algorithm>

namespace gatewayd {
namespace {

constexpr time_t kConnectTimeoutSec = 5;
constexpr time_t kDeviceTimeoutSec = 30;
// Half the connections the simulated device serves at once, so that others still reach it.
constexpr size_t kIdlePerDevice = 2;
// Below the keep-alive time of common embedded servers (5 s for cpp-httplib, nginx's default
// is 75 s), so the gateway drops an idle connection before the device does.
constexpr auto kIdleLifetime = std::chrono::seconds(2);

bool expired(const std::chrono::steady_clock::time_point& since, const std::chrono::steady_clock::time_point& now) {
    return now - since >= kIdleLifetime;
}

}  // namespace

std::unique_ptr<httplib::Client> DeviceConnections::open(const std::string& address) {
    if (address.empty()) {
        return nullptr;
    }
    auto client = std::make_unique<httplib::Client>(address);
    if (!client->is_valid()) {
        return nullptr;
    }
    client->set_keep_alive(true);
    // A request written in two parts (head, body) would otherwise wait for the device's
    // delayed acknowledgement on a kept connection.
    client->set_tcp_nodelay(true);
    client->set_connection_timeout(kConnectTimeoutSec);
    client->set_read_timeout(kDeviceTimeoutSec);
    client->set_write_timeout(kDeviceTimeoutSec);
    client->set_url_encode(false);  // the target is passed on exactly as the client wrote it
    client->set_decompress(false);
    return client;
}

DeviceConnections::Lease DeviceConnections::take(const std::string& address) {
    const auto now = std::chrono::steady_clock::now();
    std::vector<Idle> stale;  // closed after the lock is released
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto found = idle_.find(address);
        while (found != idle_.end() && !found->second.empty()) {
            Idle idle = std::move(found->second.back());
            found->second.pop_back();
            if (!expired(idle.since, now)) {
                return {std::move(idle.client), true};
            }
            stale.push_back(std::move(idle));
        }
    }
    return {open(address), false};
}

void DeviceConnections::giveBack(const std::string& address, std::unique_ptr<httplib::Client> client) {
    if (client == nullptr || !client->is_socket_open()) {
        return;
    }
    const auto now = std::chrono::steady_clock::now();
    std::vector<Idle> dropped;  // closed after the lock is released
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<Idle>& idle = idle_[address];
    const auto firstLive = std::stable_partition(idle.begin(), idle.end(),
                                                 [&](const Idle& entry) { return expired(entry.since, now); });
    std::move(idle.begin(), firstLive, std::back_inserter(dropped));
    idle.erase(idle.begin(), firstLive);
    if (idle.size() < kIdlePerDevice) {
        idle.push_back({std::move(client), now});
    }
}

}  // namespace gatewayd
