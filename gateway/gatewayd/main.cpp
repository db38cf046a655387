// zqgatewayd: the reference gateway's management service, the host of libZQTELMIMgrBus.
//   zqgatewayd [--home DIR] [--library PATH] [--foreground]
//   zqgatewayd init [--home DIR] [--password PASSWORD]
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "DetachedStart.h"
#include "GatewayService.h"
#include "GatewaydLog.h"
#include "HomeInit.h"
#include "TelmiLibrary.h"
#include "ZQGatewayHome.h"

using namespace gatewayd;

namespace {

constexpr const char* kPidFile = "run/gatewayd.pid";

struct Options {
    std::string home;
    std::string libraryPath = ZQ_DEFAULT_LIBRARY_PATH;
    bool foreground = false;
    std::string password;
};

int runInit(Options& options) {
    std::string error;
    switch (initialiseHome(options.password, error)) {
        case InitOutcome::initialised:
            std::printf("gateway home %s initialised; admin password: %s\n", ZQ_Gateway_HomeDir().c_str(),
                        options.password.c_str());
            return 0;
        case InitOutcome::alreadyInitialised:
            std::printf("gateway home %s already has an admin password\n", ZQ_Gateway_HomeDir().c_str());
            return 0;
        case InitOutcome::failed:
            break;
    }
    std::fprintf(stderr, "zqgatewayd init: %s\n", error.c_str());
    return 1;
}

int runService(const Options& options) {
    // Before any thread exists: the fork, and the signal mask every thread inherits.
    std::optional<DetachedStart> detached;
    if (!options.foreground) {
        detached = DetachedStart::fork();
    }
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    ::pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    ::signal(SIGPIPE, SIG_IGN);

    std::string error;
    TelmiLibrary library;
    std::optional<GatewayService> service;
    if (ZQ_Gateway_HomeDir().empty()) {
        error = "the gateway home cannot be created";
    } else if (library.load(options.libraryPath, error)) {
        service.emplace(library);
        if (!service->start(error)) {
            service.reset();
        }
    }
    if (!service) {
        std::fprintf(stderr, "zqgatewayd: %s\n", error.c_str());
        GATEWAYD_LOG(5, "gateway service not started: %s", error.c_str());
        if (detached) {
            detached->started(false);
        }
        return 1;
    }
    const std::string pidFile = ZQ_Gateway_HomePath(kPidFile);
    ZQ_Gateway_WriteFileAtomically(pidFile, std::to_string(::getpid()) + "\n");
    if (detached) {
        detached->started(true);
    }

    int signal = 0;
    ::sigwait(&stopSignals, &signal);
    GATEWAYD_LOG(3, "gateway service stopping on signal %d", signal);
    service.reset();
    ::unlink(pidFile.c_str());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app {"Management service of the reference gateway: the management API and the TELMI admission check."};
    app.add_option("--home", options.home, "Gateway home directory (overrides ZQ_GATEWAY_HOME)");
    app.add_option("--library", options.libraryPath, "Path of libZQTELMIMgrBus.so to load")->capture_default_str();
    app.add_flag("-f,--foreground", options.foreground, "Stay in the foreground instead of detaching");
    CLI::App* init = app.add_subcommand("init", "Give a new gateway home its admin password and print it");
    init->add_option("--password", options.password, "The admin password (default: a generated one)");
    init->fallthrough();
    CLI11_PARSE(app, argc, argv);

    if (!options.home.empty()) {
        ::setenv("ZQ_GATEWAY_HOME", options.home.c_str(), 1);
    }
    return init->parsed() ? runInit(options) : runService(options);
}
