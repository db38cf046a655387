// Keeps the media daemon and nginx running: a daemon found dead is started again, with a
// back-off between attempts (1 s, doubling up to 60 s, reset once it has run for a minute).
#pragma once

#include <json/json.h>

#include <chrono>
#include <string>
#include <vector>

namespace gatewayd {

class Supervisor {
public:
    // mediadProgram: what to start when the media daemon has not been seen running (otherwise
    // the command line it last ran with is used again).
    explicit Supervisor(std::string mediadProgram);

    // Starts again whatever died, when its back-off allows; true when something was started, so
    // that its listeners can be announced to it at once.
    bool check();
    // [{"name", "running", "pid", "restarts", "lastRestart"}]
    Json::Value statesJson() const;

private:
    using Clock = std::chrono::steady_clock;
    struct Daemon {
        std::string name;
        int pid = 0;
        int restarts = 0;
        std::string lastRestart;  // UTC time, empty when never
        int failedAttempts = 0;
        Clock::time_point nextAttempt {};
        Clock::time_point upSince {};
    };

    static Daemon named(const char* name) {
        Daemon daemon;
        daemon.name = name;
        return daemon;
    }
    // The pid of the running daemon; 0 when it does not run.
    int runningMediad();
    int runningNginx();
    bool startMediad();
    bool startNginx();
    // Watches one daemon; true when it was started again.
    bool keep(Daemon& daemon, int (Supervisor::*running)(), bool (Supervisor::*start)());

    std::vector<std::string> mediadCommand_;
    Daemon mediad_ = named("zqmediad");
    Daemon nginx_ = named("nginx");
};

}  // namespace gatewayd
