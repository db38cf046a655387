#pragma once

#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "ZQBase.h"

namespace zqbase {

// The gateway's private nginx, prefix <home>/nginx: nginx.conf (regenerated at every Reboot),
// telmi-ports.conf (one server listening on every TELMI port, included by nginx.conf),
// nginx.pid, logs/, temp/. The server proxies to the TELMI front end (the settings'
// telmiUpstream) and tells it the port in "X-TELMI-Port" and the client in "X-Real-IP" and
// "X-Forwarded-For".
// Work is serialised within the process by a mutex and between processes by a file lock.
class NginxOper : public ZQBase::CNginxOper {
public:
    static constexpr const char* kBinary = "/usr/sbin/nginx";

    int ModifyConfig(ZQBase::tagNginxOper op, void* arg, void* arg2) override;
    int Reboot() override;
    int Quit() override;
    int getPid(std::vector<int>& pids) override;

private:
    struct Paths {
        std::string prefix, conf, ports, pid, errorLog, lock;
    };

    static Paths paths();
    static std::set<int> readPorts(const Paths& p);
    static bool writePorts(const Paths& p, const std::set<int>& ports);
    static bool writeMainConfig(const Paths& p);
    // The running master's pid, 0 when our nginx does not run.
    static int runningMaster(const Paths& p);

    std::mutex mutex_;
};

}  // namespace zqbase
