#pragma once

#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ZQBase.h"
#include "base/NginxConfig.h"

namespace zqbase {

// The gateway's private nginx, prefix <home>/nginx (what it serves: NginxConfig.h):
// nginx.conf, telmi-request.conf and telmi-devices.conf (regenerated at every Reboot),
// telmi-ports.conf (one server listening on every bound device's port), nginx.pid, logs/, temp/.
// Work is serialised within the process by a mutex and between processes by a file lock.
class NginxOper : public ZQBase::CNginxOper {
public:
    static constexpr const char* kBinary = "/usr/sbin/nginx";

    int ModifyConfig(ZQBase::tagNginxOper op, void* arg, void* arg2) override;
    int Reboot() override;
    int Quit() override;
    int getPid(std::vector<int>& pids) override;

    // For the gateway's own programs (ZQGatewayNginx.h).
    std::set<int> configuredPorts();
    std::set<int> unlistedPorts();
    int masterPid();
    bool clearPorts();
    std::vector<std::string> takenPorts();

private:
    using Paths = NginxFiles;

    static Paths paths();
    static std::set<int> readPorts(const Paths& p);
    static bool writePorts(const Paths& p, const std::set<int>& ports);
    static bool writeMainConfig(const Paths& p);
    // The running master's pid, 0 when our nginx does not run.
    static int runningMaster(const Paths& p);
    // The ports nginx is to listen on (management, user mode, bound devices), each with its role.
    static std::vector<std::pair<std::string, int>> wantedPorts(const Paths& p);
    // Every port nginx is to listen on that a program other than this home's nginx holds, as
    // "managementPort 8600 is already in use by nginx (pid 123)".
    static std::vector<std::string> portsTaken(const Paths& p);
    // Signals a running master to reload and waits until a worker of the new configuration runs.
    static bool reload(int master);

    std::mutex mutex_;
};

}  // namespace zqbase
