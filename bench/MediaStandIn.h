// STAND-IN for the media daemon, for the benchmarks only: answers the library's three commands
// at once, as a healthy daemon would, whatever the ports. Tests use the real zqmediad.
#pragma once

#include <atomic>
#include <string>
#include <thread>

namespace gwtest {

class MediaStandIn {
public:
    MediaStandIn();
    ~MediaStandIn();

private:
    void serve();
    static std::string answer(const std::string& command);

    int fd_ = -1;
    std::atomic<bool> stopping_ {false};
    std::thread thread_;
};

}  // namespace gwtest
