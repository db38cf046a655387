#include "base/NginxOper.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <list>
#include <memory>
#include <sstream>
#include <utility>

#include "LogLevel.h"
#include "ZQGatewayDevices.h"
#include "ZQGatewayHome.h"
#include "ZQGatewayNginx.h"
#include "base/PortProbe.h"
#include "base/ProcessTools.h"
#include "config/FileLock.h"
#include "tvlog.h"

namespace zqbase {
namespace {

constexpr int kStartWaitMs = 5000;
constexpr int kQuitWaitMs = 10000;

std::string readFile(const std::string& path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// Started by root, nginx would run its workers as nobody; they run as the gateway's own user
// instead, so that the host's sockets can stay private to that user.
std::string workerUser() {
    if (::geteuid() != 0) {
        return "";
    }
    const passwd* user = ::getpwuid(::geteuid());
    const group* grp = ::getgrgid(::getegid());
    return user != nullptr && grp != nullptr ? std::string(user->pw_name) + " " + grp->gr_name : "";
}

// Whether this host can listen on IPv6 at all (a kernel may be built or booted without it).
bool hostHasIpv6() {
    const int fd = ::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return false;
    }
    sockaddr_in6 loopback {};
    loopback.sin6_family = AF_INET6;
    loopback.sin6_addr = in6addr_loopback;
    const bool bound = ::bind(fd, reinterpret_cast<const sockaddr*>(&loopback), sizeof(loopback)) == 0;
    ::close(fd);
    return bound;
}

std::vector<NginxDevice> deviceUpstreams() {
    std::vector<std::shared_ptr<ZQGateway::CGatewayDevice>> devices;
    ZQ_DeviceMgr_GetAllDevices(devices);
    std::vector<NginxDevice> upstreams;
    for (const auto& device : devices) {
        upstreams.push_back(
            {ZQ_Gateway_DeviceUpstream(device->getDeviceIndex()), ZQ_Gateway_TelmiHostPort(device->getTelmiAddress())});
    }
    return upstreams;
}

// Whether pid is this home's nginx, running or left behind by a master killed outright: it
// holds a file of the home's nginx directory (its error log) open. Another home's nginx on the
// same ports is not ours to stop.
bool ownNginx(const NginxFiles& p, int pid) { return processName(pid) == "nginx" && holdsFileUnder(pid, p.prefix); }

// Workers outlive a master killed outright and keep its listening sockets, so that a new nginx
// could bind none of its ports; this home's are known by the management port they hold. A
// killed worker lets go of its sockets only as it exits, each port in turn, so the wait is for
// every port it held, not the first one.
void stopOrphanedWorkers(const NginxFiles& p, const std::vector<std::pair<std::string, int>>& wanted) {
    ZQGateway::tagGatewaySettings settings;
    ZQ_Gateway_GetSettings(settings);
    const auto listeners = tcpListeners(settings.managementPort);
    if (!listeners || listeners->empty()) {
        return;
    }
    std::list<int> orphans;
    for (int pid : processesNamed("nginx")) {
        for (const TcpListener& listener : *listeners) {
            if (heldByAny({pid}, listener.inode) && ownNginx(p, pid)) {
                orphans.push_back(pid);
                break;
            }
        }
    }
    if (orphans.empty()) {
        return;
    }
    // Known before they are killed: a killed worker's descriptors vanish before its sockets close.
    std::vector<std::pair<int, uint64_t>> held;
    for (const auto& [what, port] : wanted) {
        for (const TcpListener& listener :
             tcpListeners(static_cast<uint16_t>(port)).value_or(std::vector<TcpListener> {})) {
            if (heldByAny(orphans, listener.inode)) {
                held.emplace_back(port, listener.inode);
            }
        }
    }
    for (int pid : orphans) {
        tvlog_format(gwlog::kWarning, "ZQBase", "stopping nginx worker %d, left behind by its master", pid);
        ::kill(pid, SIGKILL);
    }
    // The first port on which one of their sockets still listens; 0 when none does.
    const auto stillHeld = [&held] {
        for (const auto& [port, inode] : held) {
            const auto now = tcpListeners(static_cast<uint16_t>(port));
            if (!now || std::any_of(now->begin(), now->end(),
                                    [inode = inode](const TcpListener& l) { return l.inode == inode; })) {
                return port;
            }
        }
        return 0;
    };
    int port = 0;
    if (!waitFor(kQuitWaitMs, [&] { return (port = stillHeld()) == 0; })) {
        tvlog_format(gwlog::kWarning, "ZQBase",
                     "port %d still listens %d s after nginx's orphaned workers were stopped", port,
                     kQuitWaitMs / 1000);
    }
}

std::string describeHolders(const std::vector<int>& holders) {
    if (holders.empty()) {
        return "a process of another user";
    }
    return processName(holders.front()) + " (pid " + std::to_string(holders.front()) + ")";
}

bool allListening(const std::set<int>& ports) {
    for (int port : ports) {
        if (CheckPort(port, 1) != -1) {
            return false;
        }
    }
    return true;
}

}  // namespace

NginxOper::Paths NginxOper::paths() {
    Paths p;
    p.prefix = ZQ_Gateway_HomePath("nginx");
    if (p.prefix.empty()) {
        return p;
    }
    p.conf = p.prefix + "/nginx.conf";
    p.ports = p.prefix + "/telmi-ports.conf";
    p.devices = p.prefix + "/telmi-devices.conf";
    p.request = p.prefix + "/telmi-request.conf";
    p.pid = p.prefix + "/nginx.pid";
    p.errorLog = p.prefix + "/logs/error.log";
    p.lock = p.prefix + "/.lock";
    p.authSocket = ZQ_Gateway_HomePath(ZQGateway::kTelmiAdmissionSocket);
    p.apiSocket = ZQ_Gateway_HomePath(ZQGateway::kManagementSocket);
    for (const char* dir : {"", "/logs", "/temp"}) {
        const std::string path = p.prefix + dir;
        if (::mkdir(path.c_str(), 0700) == 0) {
            const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            ZQ_Gateway_GiveToHomeOwner(fd, path);
            ::close(fd);
        }
    }
    return p;
}

std::set<int> NginxOper::readPorts(const Paths& p) {
    // "listen PORT;" lines; their "listen [::]:PORT;" twins name the same ports.
    std::set<int> ports;
    std::istringstream lines(readFile(p.ports));
    std::string line;
    while (std::getline(lines, line)) {
        int port = 0;
        if (std::sscanf(line.c_str(), " listen %d;", &port) == 1) {
            ports.insert(port);
        }
    }
    return ports;
}

bool NginxOper::writePorts(const Paths& p, const std::set<int>& ports) {
    // Rebuilt from the device store at every start, so a crash cannot lose what it says.
    return ZQ_Gateway_WriteFileAtomically(p.ports, nginxPortsConfig(p, ports, hostHasIpv6()), 0600, false) == 0;
}

bool NginxOper::writeMainConfig(const Paths& p) {
    ZQGateway::tagGatewaySettings settings;
    ZQ_Gateway_GetSettings(settings);
    const NginxServices services {settings.managementPort, settings.telmiUserPort, hostHasIpv6(), workerUser()};
    // The ports file is the bindings' own: it is only created here, and rewritten in full from
    // the device store by the library at every start.
    struct stat portsFile {};
    return (::stat(p.ports.c_str(), &portsFile) == 0 || writePorts(p, {})) &&
           ZQ_Gateway_WriteFileAtomically(p.request, nginxRequestConfig(), 0600, false) == 0 &&
           ZQ_Gateway_WriteFileAtomically(p.devices, nginxDevicesConfig(deviceUpstreams()), 0600, false) == 0 &&
           ZQ_Gateway_WriteFileAtomically(p.conf, nginxMainConfig(p, services)) == 0;
}

int NginxOper::runningMaster(const Paths& p) {
    const int pid = std::atoi(readFile(p.pid).c_str());
    if (!processAlive(pid) || processName(pid) != "nginx" || processCommand(pid).find(p.conf) == std::string::npos) {
        return 0;
    }
    return pid;
}

int NginxOper::ModifyConfig(ZQBase::tagNginxOper op, void* arg, void*) {
    if (arg == nullptr || (op != ZQBase::addListenPort && op != ZQBase::delListenPort)) {
        return 0;
    }
    int32_t port = 0;
    std::memcpy(&port, arg, sizeof(port));  // callers pass records that are only 2-byte aligned
    if (port <= 0 || port > 65535) {
        return 0;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    const Paths p = paths();
    zqgw::FileLock fileLock(p.lock);
    if (!fileLock.held()) {
        return 0;
    }
    std::set<int> ports = readPorts(p);
    const bool changed = op == ZQBase::addListenPort ? ports.insert(port).second : ports.erase(port) != 0;
    if (changed && !writePorts(p, ports)) {
        tvlog_format(gwlog::kError, "ZQBase", "cannot write %s", p.ports.c_str());
        return 0;
    }
    return 1;
}

// A running nginx is reloaded by signalling its master (nginx -s needs a valid configuration
// to find the master); a stopped one is started. Either way the configuration is tested first,
// so a broken one is reported here instead of being left in nginx's log.
int NginxOper::Reboot() {
    std::lock_guard<std::mutex> lock(mutex_);
    const Paths p = paths();
    zqgw::FileLock fileLock(p.lock);
    if (!fileLock.held()) {
        return 0;
    }
    if (!writeMainConfig(p)) {
        tvlog_format(gwlog::kError, "ZQBase", "cannot write %s", p.conf.c_str());
        return 0;
    }
    const std::vector<std::string> base = {kBinary, "-p", p.prefix + "/", "-c", p.conf, "-e", p.errorLog};
    std::vector<std::string> test = base;
    test.insert(test.end(), {"-t", "-q"});
    if (runAndWait(test, p.errorLog) != 0) {
        tvlog_format(gwlog::kError, "ZQBase", "nginx refuses %s; see %s", p.conf.c_str(), p.errorLog.c_str());
        return 0;
    }
    if (int master = runningMaster(p); master != 0) {
        if (!reload(master)) {
            tvlog_format(gwlog::kError, "ZQBase", "nginx did not take its new configuration; see %s",
                         p.errorLog.c_str());
            return 0;
        }
    } else {
        stopOrphanedWorkers(p, wantedPorts(p));
        if (const std::vector<std::string> taken = portsTaken(p); !taken.empty()) {
            for (const std::string& port : taken) {
                tvlog_format(gwlog::kError, "ZQBase", "nginx not started: %s", port.c_str());
            }
            return 0;
        }
        if (runAndWait(base, p.errorLog) != 0 || !waitFor(kStartWaitMs, [&p] { return runningMaster(p) != 0; })) {
            tvlog_format(gwlog::kError, "ZQBase", "nginx did not start; see %s", p.errorLog.c_str());
            return 0;
        }
    }
    const std::set<int> ports = readPorts(p);
    if (!waitFor(kStartWaitMs, [&ports] { return allListening(ports); })) {
        tvlog_format(gwlog::kWarning, "ZQBase", "nginx runs but not every TELMI port listens; see %s",
                     p.errorLog.c_str());
    }
    // Old workers keep the listeners of ports dropped from the list until they have seen the
    // reload: the port is free for others only once they have let go.
    waitFor(kStartWaitMs, [this] { return unlistedPorts().empty(); });
    return 1;
}

std::vector<std::pair<std::string, int>> NginxOper::wantedPorts(const Paths& p) {
    ZQGateway::tagGatewaySettings settings;
    ZQ_Gateway_GetSettings(settings);
    std::vector<std::pair<std::string, int>> wanted = {{"managementPort", settings.managementPort}};
    if (settings.telmiUserPort != 0) {
        wanted.emplace_back("telmiUserPort", settings.telmiUserPort);
    }
    for (int port : readPorts(p)) {
        wanted.emplace_back("device port", port);
    }
    return wanted;
}

std::vector<std::string> NginxOper::portsTaken(const Paths& p) {
    std::vector<std::string> taken;
    for (const auto& [what, port] : wantedPorts(p)) {
        const auto listeners = tcpListeners(static_cast<uint16_t>(port));
        for (const TcpListener& listener : listeners.value_or(std::vector<TcpListener> {})) {
            const std::vector<int> holders = holdersOf(listener.inode);
            if (std::none_of(holders.begin(), holders.end(), [&p](int pid) { return ownNginx(p, pid); })) {
                taken.push_back(what + " " + std::to_string(port) + " is already in use by " +
                                describeHolders(holders));
                break;
            }
        }
    }
    return taken;
}

std::vector<std::string> NginxOper::takenPorts() { return portsTaken(paths()); }

bool NginxOper::reload(int master) {
    const std::vector<int> before = childrenOf(master);
    if (::kill(master, SIGHUP) != 0) {
        return false;
    }
    // Until a new worker runs, requests still meet the old configuration (a device registered
    // a moment ago would have no upstream there).
    return waitFor(kStartWaitMs, [master, &before] {
        for (int worker : childrenOf(master)) {
            if (std::find(before.begin(), before.end(), worker) == before.end()) {
                return true;
            }
        }
        return false;
    });
}

int NginxOper::Quit() {
    std::lock_guard<std::mutex> lock(mutex_);
    const Paths p = paths();
    zqgw::FileLock fileLock(p.lock);
    if (!fileLock.held()) {
        return 0;
    }
    const int master = runningMaster(p);
    if (master == 0) {
        return 1;
    }
    if (::kill(master, SIGQUIT) != 0) {
        return 0;
    }
    return waitFor(kQuitWaitMs, [master] { return !processAlive(master); }) ? 1 : 0;
}

int NginxOper::getPid(std::vector<int>& pids) {
    const Paths p = paths();
    const int master = runningMaster(p);
    if (master != 0) {
        pids.push_back(master);
        for (int worker : childrenOf(master)) {
            pids.push_back(worker);
        }
    }
    return 1;
}

std::set<int> NginxOper::configuredPorts() { return readPorts(paths()); }

std::set<int> NginxOper::unlistedPorts() {
    ZQGateway::tagGatewaySettings settings;
    ZQ_Gateway_GetSettings(settings);
    std::vector<int> pids;
    getPid(pids);
    std::set<int> unlisted;
    if (pids.empty()) {
        return unlisted;
    }
    const std::set<int> listed = configuredPorts();
    for (int port : portsListenedBy({pids.begin(), pids.end()}, settings.httpPortFirst, settings.httpPortLast)
                        .value_or(std::set<uint16_t> {})) {
        if (listed.count(port) == 0) {
            unlisted.insert(port);
        }
    }
    return unlisted;
}

int NginxOper::masterPid() { return runningMaster(paths()); }

bool NginxOper::clearPorts() {
    std::lock_guard<std::mutex> lock(mutex_);
    const Paths p = paths();
    zqgw::FileLock fileLock(p.lock);
    return fileLock.held() && writePorts(p, {});
}

}  // namespace zqbase

ZQBase::CNginxOper* ZQBase::CNginxOper::getInstance() {
    static zqbase::NginxOper oper;
    return &oper;
}

namespace {

zqbase::NginxOper& nginx() { return *static_cast<zqbase::NginxOper*>(ZQBase::CNginxOper::getInstance()); }

}  // namespace

std::set<int> ZQ_Gateway_NginxConfiguredPorts() { return nginx().configuredPorts(); }

std::set<int> ZQ_Gateway_NginxUnlistedPorts() { return nginx().unlistedPorts(); }

int ZQ_Gateway_NginxMasterPid() { return nginx().masterPid(); }

bool ZQ_Gateway_ClearNginxPorts() { return nginx().clearPorts(); }

std::vector<std::string> ZQ_Gateway_NginxPortsTaken() { return nginx().takenPorts(); }
