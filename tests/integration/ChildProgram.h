// Programs the integration tests run as separate processes, and the RTSP client they play
// streams with.
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <string>
#include <vector>

namespace gwtest {

// A program the test runs, its stdout on a pipe; killed if the test leaves it running.
class Program {
public:
    explicit Program(const std::vector<std::string>& argv);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    pid_t pid() const { return pid_; }
    // The next line the program prints, with its newline; empty once stdout is closed.
    std::string readLine();
    // SIGTERM, then the exit status; -1 when it did not exit normally.
    int stop();

private:
    pid_t pid_ = -1;
    FILE* output_ = nullptr;
};

// Runs command with /bin/sh; what it prints on stdout.
std::string runShell(const std::string& command);

// What ffprobe finds in the stream at port after reading 25 RTP packets of it (interleaved on
// the RTSP connection): "codec,rate,packets\n".
std::string ffprobe(unsigned short port);

}  // namespace gwtest
