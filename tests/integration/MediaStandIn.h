// TEST STAND-IN for the media daemon, until the real one lands: answers the library's three
// commands on the driver socket as a healthy daemon would, or stays silent.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace gwtest {

class MediaStandIn {
public:
    enum class Behaviour { answer, silent };

    explicit MediaStandIn(Behaviour behaviour = Behaviour::answer);
    ~MediaStandIn();
    bool ok() const { return fd_ >= 0; }
    std::vector<std::string> methods() const;  // the "method" of every command received

private:
    void serve();
    std::string answer(const std::string& command);

    Behaviour behaviour_;
    int fd_ = -1;
    std::atomic<bool> stopping_ {false};
    mutable std::mutex mutex_;
    std::vector<std::string> methods_;
    std::thread thread_;
};

}  // namespace gwtest
