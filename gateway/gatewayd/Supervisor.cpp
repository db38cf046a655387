#include "Supervisor.h"

#include <algorithm>
#include <fstream>

#include "GatewaydLog.h"
#include "UtcTime.h"
#include "ZQBase.h"
#include "ZQGatewayHome.h"
#include "ZQGatewayNginx.h"
#include "base/ProcessTools.h"

namespace gatewayd {
namespace {

constexpr const char* kMediadPidFile = "run/mediad.pid";
constexpr auto kFirstBackOff = std::chrono::seconds(1);
constexpr auto kLongestBackOff = std::chrono::seconds(60);
constexpr auto kSettled = std::chrono::seconds(60);

}  // namespace

Supervisor::Supervisor(std::string mediadProgram)
    : mediadCommand_ {std::move(mediadProgram), "--home", ZQ_Gateway_HomeDir()} {}

int Supervisor::runningMediad() {
    int pid = 0;
    std::ifstream(ZQ_Gateway_HomePath(kMediadPidFile)) >> pid;
    if (pid <= 0 || !zqbase::processAlive(pid) || zqbase::processName(pid) != "zqmediad") {
        return 0;
    }
    // The same command line next time, limits included, whoever started it.
    std::vector<std::string> command = zqbase::processArguments(pid);
    const std::string program = zqbase::processExecutable(pid);
    const bool replaced = program.size() > 10 && program.compare(program.size() - 10, 10, " (deleted)") == 0;
    if (!command.empty() && !program.empty() && !replaced) {
        command.front() = program;
        mediadCommand_ = command;
    }
    return pid;
}

int Supervisor::runningNginx() { return ZQ_Gateway_NginxMasterPid(); }

bool Supervisor::startMediad() {
    // It detaches once its command socket listens, so its exit status tells whether it started.
    return zqbase::runAndWait(mediadCommand_, ZQ_Gateway_HomePath("log/mediad-start.log")) == 0;
}

bool Supervisor::startNginx() { return ZQBase::CNginxOper::getInstance()->Reboot() != 0; }

bool Supervisor::keep(Daemon& daemon, int (Supervisor::*running)(), bool (Supervisor::*start)()) {
    const Clock::time_point now = Clock::now();
    const int runningPid = (this->*running)();
    if (runningPid != 0) {
        if (runningPid != daemon.pid) {
            daemon.pid = runningPid;
            daemon.upSince = now;
        }
        if (now - daemon.upSince >= kSettled) {
            daemon.failedAttempts = 0;
        }
        return false;
    }
    if (daemon.pid != 0) {
        GATEWAYD_LOG(gwlog::kWarning, "%s (pid %d) is gone; starting it again", daemon.name.c_str(), daemon.pid);
        daemon.pid = 0;
    }
    if (now < daemon.nextAttempt) {
        return false;
    }
    const bool started = (this->*start)();
    daemon.nextAttempt =
        now + std::min<Clock::duration>(kLongestBackOff, kFirstBackOff * (1 << std::min(daemon.failedAttempts, 6)));
    ++daemon.failedAttempts;
    if (!started) {
        GATEWAYD_LOG(
            gwlog::kError, "%s could not be started again; next attempt in %lld s", daemon.name.c_str(),
            static_cast<long long>(std::chrono::duration_cast<std::chrono::seconds>(daemon.nextAttempt - now).count()));
        return false;
    }
    ++daemon.restarts;
    daemon.pid = (this->*running)();
    daemon.upSince = now;
    daemon.lastRestart = gwio::utcTimestamp();
    GATEWAYD_LOG(gwlog::kWarning, "%s started again (restart %d)", daemon.name.c_str(), daemon.restarts);
    return true;
}

bool Supervisor::check() {
    const bool mediad = keep(mediad_, &Supervisor::runningMediad, &Supervisor::startMediad);
    const bool nginx = keep(nginx_, &Supervisor::runningNginx, &Supervisor::startNginx);
    return mediad || nginx;
}

Json::Value Supervisor::statesJson() const {
    Json::Value daemons(Json::arrayValue);
    for (const Daemon* daemon : {&mediad_, &nginx_}) {
        Json::Value entry(Json::objectValue);
        entry["name"] = daemon->name;
        entry["running"] = daemon->pid != 0;
        entry["pid"] = daemon->pid;
        entry["restarts"] = daemon->restarts;
        entry["lastRestart"] = daemon->lastRestart;
        daemons.append(entry);
    }
    return daemons;
}

}  // namespace gatewayd
