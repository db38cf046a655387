// zqmediad: the reference gateway's media module. Serves the driver's command socket and, per
// device, a TCP listener on its RTSP port whose connections are relayed to the device.
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "CommandServer.h"
#include "DetachedStart.h"
#include "EventLoop.h"
#include "MediaCommands.h"
#include "MediadLog.h"
#include "RelaySessions.h"
#include "RtspListeners.h"
#include "ServiceUser.h"
#include "StopSignals.h"
#include "ZQGatewayHome.h"
#include "ZQGatewayLog.h"
#include "ZQMediaFrame.h"

using namespace mediad;

namespace {

constexpr const char* kPidFile = "run/mediad.pid";

struct Options {
    std::string home;
    bool foreground = false;
    RelayLimits relays;
    size_t maxClients = 256;
};

// Every listener and relay costs descriptors: take all the system lets this process have.
void raiseDescriptorLimit() {
    rlimit limit {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

int serve(const Options& options) {
    // The parent exits once the command socket is ready, so that the starting script learns of a
    // failed start from the exit status.
    std::optional<gwio::DetachedStart> detached;
    if (!options.foreground) {
        detached = gwio::DetachedStart::fork("zqmediad");
    }
    const sigset_t stopSignals = gwio::blockStopSignals();
    raiseDescriptorLimit();

    const std::string home = ZQ_Gateway_HomeDir();
    if (home.empty()) {
        std::fprintf(stderr, "zqmediad: the gateway home cannot be created\n");
        return 1;
    }
    ZQGateway::tagGatewaySettings settings;
    ZQ_Gateway_GetSettings(settings);
    std::string error;
    if (!gwio::runAsServiceUser(settings.serviceUser, home, error)) {
        std::fprintf(stderr, "zqmediad: %s\n", error.c_str());
        MEDIAD_LOG(gwlog::kError, "media daemon not started: %s", error.c_str());
        return 1;
    }
    EventLoop loop([](const std::string& what) { MEDIAD_LOG(gwlog::kError, "%s", what.c_str()); });
    DeviceDirectory directory;
    RelaySessions relays(loop, directory, options.relays);
    if (!loop.valid() || !relays.valid()) {
        std::perror("zqmediad: epoll_create1 or timerfd_create");
        return 1;
    }
    RtspListeners listeners(loop, [&relays](UniqueFd client, const std::string& deviceIndex) {
        relays.start(std::move(client), deviceIndex);
    });
    MediaCommands commands(listeners, directory);
    CommandServer server(loop, commands, options.maxClients);
    const std::string socketPath = ZQ_Gateway_HomePath(ZQGateway::kMediaSocketPath);
    if (!server.listen(socketPath, error)) {
        std::fprintf(stderr, "zqmediad: %s\n", error.c_str());
        MEDIAD_LOG(gwlog::kError, "media daemon not started: %s", error.c_str());
        return 1;
    }
    if (detached) {
        detached->started(true);
    }
    UniqueFd signals(::signalfd(-1, &stopSignals, SFD_NONBLOCK | SFD_CLOEXEC));
    Watch signalWatch(loop, signals.get(), [&loop, &signals](uint32_t) {
        signalfd_siginfo info {};
        while (::read(signals.get(), &info, sizeof(info)) == static_cast<ssize_t>(sizeof(info))) {
            if (info.ssi_signo != SIGHUP) {
                loop.stop();
                return;
            }
            ZQ_Gateway_ReopenLog();  // after a log rotation
            MEDIAD_LOG(gwlog::kStartEnd, "log file reopened");
        }
    });
    if (!signals.valid() || !signalWatch.setEvents(EPOLLIN)) {
        MEDIAD_LOG(gwlog::kError, "media daemon not started: no signal descriptor");
        return 1;
    }
    const std::string pidFile = ZQ_Gateway_HomePath(kPidFile);
    ZQ_Gateway_WriteFileAtomically(pidFile, std::to_string(::getpid()) + "\n");
    MEDIAD_LOG(gwlog::kStartEnd, "media daemon started (pid %d), commands on %s", static_cast<int>(::getpid()),
               socketPath.c_str());

    const bool clean = loop.run();
    MEDIAD_LOG(gwlog::kStartEnd, "media daemon stopping with %zu listeners and %zu relays", listeners.count(),
               relays.count());
    ::unlink(pidFile.c_str());
    return clean ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    ::umask(077);  // everything the daemon creates in the home is its own alone
    Options options;
    CLI::App app {"Media module of the reference gateway: RTSP listeners per device, relayed to the devices."};
    app.add_option("--home", options.home, "Gateway home directory (overrides ZQ_GATEWAY_HOME)");
    app.add_flag("-f,--foreground", options.foreground, "Stay in the foreground instead of detaching");
    app.add_option("--max-relays", options.relays.maxRelays, "Relayed RTSP connections at once; more are refused")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    app.add_option("--max-relays-per-device", options.relays.maxPerDevice,
                   "Relayed connections to one device at once; more are refused")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    app.add_option("--max-relays-per-client", options.relays.maxPerClient,
                   "Relayed connections of one client (IPv4 address or IPv6 /64) at once; more are refused")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    app.add_option("--first-request-timeout", options.relays.firstRequest,
                   "Seconds a relayed client has to send its first bytes before it is closed")
        ->check(CLI::Range(1, 86400))
        ->capture_default_str();
    app.add_option("--idle-timeout", options.relays.idle,
                   "Seconds a relay may go without a byte from either side before it is closed")
        ->check(CLI::Range(1, 86400))
        ->capture_default_str();
    app.add_option("--max-clients", options.maxClients, "Command socket clients at once; more are refused")
        ->check(CLI::PositiveNumber);
    CLI11_PARSE(app, argc, argv);

    if (!options.home.empty()) {
        ::setenv("ZQ_GATEWAY_HOME", options.home.c_str(), 1);
    }
    return serve(options);
}
