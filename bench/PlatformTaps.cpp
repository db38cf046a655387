#include "PlatformTaps.h"

#include <dlfcn.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <string>
#include <vector>

#include "ZQBase.h"

namespace {

std::atomic<int> reloadSignals {0};
std::atomic<bool> instantProbes {false};

// The definition the platform library provides, found past this executable's.
template <class Function>
Function* platformOwn(const char* symbol) {
    void* own = ::dlsym(RTLD_NEXT, symbol);
    if (own == nullptr) {
        std::fprintf(stderr, "zq_bench: the platform does not define %s\n", symbol);
        std::abort();
    }
    return reinterpret_cast<Function*>(own);
}

// Forwards everything to the platform's nginx control but answers the process list at once.
class InstantNginx : public ZQBase::CNginxOper {
public:
    explicit InstantNginx(ZQBase::CNginxOper& real) : real_(real) {}
    int ModifyConfig(ZQBase::tagNginxOper op, void* arg, void* arg2) override {
        return real_.ModifyConfig(op, arg, arg2);
    }
    int Reboot() override { return real_.Reboot(); }
    int Quit() override { return real_.Quit(); }
    int getPid(std::vector<int>&) override { return 1; }

private:
    ZQBase::CNginxOper& real_;
};

}  // namespace

namespace bench {

int nginxReloadSignals() { return reloadSignals.load(); }

void setInstantPortProbes(bool on) { instantProbes = on; }

}  // namespace bench

extern "C" int kill(pid_t pid, int signal) {
    if (signal == SIGHUP) {
        ++reloadSignals;
    }
    return static_cast<int>(::syscall(SYS_kill, pid, signal));
}

int CheckPort(int port, int mode) {
    static auto* own = platformOwn<int(int, int)>("_Z9CheckPortii");
    return instantProbes ? -1 : own(port, mode);
}

int CheckPortOccupy(std::list<int> pids, std::string ip, int port, int mode) {
    static auto* own = platformOwn<int(std::list<int>, std::string, int, int)>(
        "_Z15CheckPortOccupyNSt7__cxx114listIiSaIiEEENS_12basic_stringIcSt11char_traitsIcESaIcEEEii");
    return instantProbes ? 0 : own(std::move(pids), std::move(ip), port, mode);
}

ZQBase::CNginxOper* ZQBase::CNginxOper::getInstance() {
    static auto* own = platformOwn<ZQBase::CNginxOper*()>("_ZN6ZQBase10CNginxOper11getInstanceEv");
    static InstantNginx instant(*own());
    return instantProbes ? &instant : own();
}
