// zqgatewayd: the reference gateway's management service, the host of libZQTELMIMgrBus.
//   zqgatewayd [--home DIR] [--library PATH] [--foreground]
//   zqgatewayd init [--home DIR] [--password-file FILE|-]
#include <signal.h>
#include <sys/stat.h>
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
#include "SecretInput.h"
#include "ServiceUser.h"
#include "TelmiLibrary.h"
#include "ZQGatewayHome.h"

using namespace gatewayd;

namespace {

constexpr const char* kPidFile = "run/gatewayd.pid";

struct Options {
    std::string home;
    std::string libraryPath = ZQ_DEFAULT_LIBRARY_PATH;
    bool foreground = false;
    std::string passwordFile;
};

int runInit(const Options& options) {
    std::string error, password;
    const std::string home = ZQ_Gateway_HomeDir();
    ZQGateway::tagGatewaySettings settings;
    ZQ_Gateway_GetSettings(settings);
    if (home.empty()) {
        error = "the gateway home cannot be created";
    } else if (gwio::prepareServiceUser(settings.serviceUser, home, error) &&
               (options.passwordFile.empty() ||
                gwapi::readSecret("admin password", options.passwordFile == "-" ? "" : options.passwordFile, password,
                                  error))) {
        switch (initialiseHome(password, error)) {
            case InitOutcome::initialised:
                if (password.empty()) {
                    std::printf("gateway home %s initialised; its generated admin password is in %s\n", home.c_str(),
                                ZQ_Gateway_HomePath(kGeneratedPasswordFile).c_str());
                } else {
                    std::printf("gateway home %s initialised with the given admin password\n", home.c_str());
                }
                return 0;
            case InitOutcome::alreadyInitialised:
                std::printf("gateway home %s already has an admin password\n", home.c_str());
                return 0;
            case InitOutcome::failed:
                break;
        }
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
    const std::string home = ZQ_Gateway_HomeDir();
    ZQGateway::tagGatewaySettings settings;
    ZQ_Gateway_GetSettings(settings);
    if (home.empty()) {
        error = "the gateway home cannot be created";
    } else if (gwio::runAsServiceUser(settings.serviceUser, home, error) && library.load(options.libraryPath, error)) {
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
    ::umask(077);  // the home holds secrets: what the service (and nginx, its child) creates is private
    Options options;
    CLI::App app {"Management service of the reference gateway: the management API and the TELMI admission check."};
    app.add_option("--home", options.home, "Gateway home directory (overrides ZQ_GATEWAY_HOME)");
    app.add_option("--library", options.libraryPath, "Path of libZQTELMIMgrBus.so to load")->capture_default_str();
    app.add_flag("-f,--foreground", options.foreground, "Stay in the foreground instead of detaching");
    CLI::App* init = app.add_subcommand(
        "init", "Give a new gateway home its admin password (as root, also create the service user and give it the home)");
    init->add_option("--password-file", options.passwordFile,
                     "File whose first line is the admin password; - reads standard input (default: a generated "
                     "password, left in the home's admin-password file)");
    init->fallthrough();
    CLI11_PARSE(app, argc, argv);

    if (!options.home.empty()) {
        ::setenv("ZQ_GATEWAY_HOME", options.home.c_str(), 1);
    }
    return init->parsed() ? runInit(options) : runService(options);
}
