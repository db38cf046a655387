// A TCP relay 127.0.0.1:listenPort -> 127.0.0.1:targetPort that holds back the first answer
// carrying a Digest challenge for delayMs, so that the client answers it with an aged nonce.
// Connections are relayed one after another, as a single client makes them.
#pragma once

#include <atomic>
#include <thread>

namespace gwtest {

class DelayingRelay {
public:
    DelayingRelay(unsigned short listenPort, unsigned short targetPort, int delayMs);
    ~DelayingRelay();

private:
    void run();
    void relay(int client);

    int listenFd_;
    unsigned short targetPort_;
    int delayMs_;
    bool delayed_ = false;
    std::atomic<bool> stopping_ {false};
    std::thread thread_;
};

}  // namespace gwtest
