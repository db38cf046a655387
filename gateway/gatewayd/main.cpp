// zqgatewayd: the reference gateway's management service, the host of libZQTELMIMgrBus.
//   zqgatewayd [--home DIR] [--library PATH] [--mediad PATH] [--foreground]
//   zqgatewayd init [--home DIR] [--password-file FILE|-] [--port-password-file FILE|-]
//   zqgatewayd check [--home DIR] [--file FILE]
//   zqgatewayd backup|restore [--home DIR] FILE
//   zqgatewayd passwd [--home DIR] [--port-mode]
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "DetachedStart.h"
#include "GatewayService.h"
#include "GatewaydLog.h"
#include "HomeBackup.h"
#include "HomeInit.h"
#include "ResultMeaning.h"
#include "SecretInput.h"
#include "ServiceUser.h"
#include "StopSignals.h"
#include "TelmiLibrary.h"
#include "ZQGatewayHome.h"
#include "ZQGatewayLog.h"
#include "ZQGatewayNginx.h"

using namespace gatewayd;

namespace {

constexpr const char* kPidFile = "run/gatewayd.pid";

struct Options {
    std::string home;
    std::string libraryPath = ZQ_DEFAULT_LIBRARY_PATH;
    std::string mediadPath = ZQ_DEFAULT_MEDIAD_PATH;
    bool foreground = false;
    std::string passwordFile;
    std::string portPasswordFile;
    std::string settingsFile;
    std::string backupFile;
    bool portMode = false;  // passwd: the port-mode credential instead of the management API's
};

// The service takes its settings as written or not at all: a value it would have to replace
// with a default makes it refuse, naming every problem.
bool settingsValid(const char* program, const std::string& path) {
    const std::vector<std::string> problems = ZQ_Gateway_CheckSettingsFile(path);
    for (const std::string& problem : problems) {
        std::fprintf(stderr, "%s: %s: %s\n", program, path.c_str(), problem.c_str());
    }
    return problems.empty();
}

int runCheck(const Options& options) {
    const std::string path =
        options.settingsFile.empty() ? ZQ_Gateway_HomePath(ZQGateway::kSettingsFile) : options.settingsFile;
    // An absent file in a home means the defaults; a file named on the command line must be there.
    if (!options.settingsFile.empty() && ::access(path.c_str(), R_OK) != 0) {
        std::fprintf(stderr, "zqgatewayd check: %s cannot be read\n", path.c_str());
        return 1;
    }
    if (!settingsValid("zqgatewayd check", path)) {
        return 1;
    }
    std::printf(::access(path.c_str(), F_OK) == 0 ? "%s: valid\n" : "%s: absent, the defaults apply\n", path.c_str());
    return 0;
}

// The two credentials, each from its file or generated; false with error when one fails.
bool initialiseCredentials(const Options& options, const std::string& home, std::string& error) {
    const struct {
        Credential credential;
        const char* what;
        const std::string& file;
    } credentials[] = {{Credential::management, "management API admin password", options.passwordFile},
                       {Credential::portMode, "TELMI port-mode admin password", options.portPasswordFile}};
    for (const auto& c : credentials) {
        std::string password;
        if (!c.file.empty() && !gwapi::readSecret(c.what, c.file == "-" ? "" : c.file, password, error)) {
            return false;
        }
        switch (initialiseCredential(c.credential, password, error)) {
            case InitOutcome::initialised:
                if (password.empty()) {
                    std::printf("gateway home %s: its generated %s is in %s\n", home.c_str(), c.what,
                                ZQ_Gateway_HomePath(generatedPasswordFile(c.credential)).c_str());
                } else {
                    std::printf("gateway home %s: %s set\n", home.c_str(), c.what);
                }
                break;
            case InitOutcome::alreadyInitialised:
                std::printf("gateway home %s already has a %s, left as it is (zqgatewayd passwd%s changes it)\n",
                            home.c_str(), c.what, c.credential == Credential::portMode ? " --port-mode" : "");
                break;
            case InitOutcome::failed: return false;
        }
    }
    return true;
}

int runBackup(const Options& options, bool restore) {
    std::string error;
    if (ZQ_Gateway_HomeDir().empty()) {
        error = "the gateway home cannot be created";
    } else if (restore ? restoreHome(options.backupFile, error) : backupHome(options.backupFile, error)) {
        std::printf(restore ? "gateway home %s restored from %s\n" : "gateway home %s backed up to %s\n",
                    ZQ_Gateway_HomeDir().c_str(), options.backupFile.c_str());
        return 0;
    }
    std::fprintf(stderr, "zqgatewayd %s: %s\n", restore ? "restore" : "backup", error.c_str());
    return 1;
}

int runInit(const Options& options) {
    std::string error;
    const std::string home = ZQ_Gateway_HomeDir();
    if (!home.empty() && !settingsValid("zqgatewayd init", ZQ_Gateway_HomePath(ZQGateway::kSettingsFile))) {
        return 1;
    }
    ZQGateway::tagGatewaySettings settings;
    ZQ_Gateway_GetSettings(settings);
    if (home.empty()) {
        error = "the gateway home cannot be created";
    } else if (options.passwordFile == "-" && options.portPasswordFile == "-") {
        error = "only one of the two passwords can come from standard input";
    } else if (gwio::prepareServiceUser(settings.serviceUser, home, error) &&
               initialiseCredentials(options, home, error)) {
        return 0;
    }
    std::fprintf(stderr, "zqgatewayd init: %s\n", error.c_str());
    return 1;
}

int runPasswd(const Options& options) {
    const Credential credential = options.portMode ? Credential::portMode : Credential::management;
    const char* what = options.portMode ? "new TELMI port-mode admin password" : "new management API admin password";
    std::string password, error;
    if (ZQ_Gateway_HomeDir().empty()) {
        error = "the gateway home cannot be created";
    } else if (gwapi::readNewSecret(what, password, error)) {
        if (const int code = replaceCredential(credential, password); code != 0) {
            error = std::string(gwapi::meaningOf(code, gwapi::Job::changePassword).message) + " (code " +
                    std::to_string(code) + ")";
        } else {
            std::printf("password changed; %s\n", clientsOf(credential));
            return 0;
        }
    }
    std::fprintf(stderr, "zqgatewayd passwd: %s\n", error.c_str());
    return 1;
}

int runService(const Options& options) {
    if (!ZQ_Gateway_HomeDir().empty() && !settingsValid("zqgatewayd", ZQ_Gateway_HomePath(ZQGateway::kSettingsFile))) {
        return 1;
    }
    // Before any thread exists: the fork, and the signal mask every thread inherits.
    std::optional<gwio::DetachedStart> detached;
    if (!options.foreground) {
        detached = gwio::DetachedStart::fork("zqgatewayd");
    }
    const sigset_t stopSignals = gwio::blockStopSignals();

    std::string error;
    TelmiLibrary library;
    std::optional<GatewayService> service;
    const std::string home = ZQ_Gateway_HomeDir();
    ZQGateway::tagGatewaySettings settings;
    ZQ_Gateway_GetSettings(settings);
    if (home.empty()) {
        error = "the gateway home cannot be created";
    } else if (gwio::runAsServiceUser(settings.serviceUser, home, error) && library.load(options.libraryPath, error)) {
        service.emplace(library, options.mediadPath);
        if (!service->start(error)) {
            service.reset();
        }
    }
    if (!service) {
        std::fprintf(stderr, "zqgatewayd: %s\n", error.c_str());
        GATEWAYD_LOG(gwlog::kError, "gateway service not started: %s", error.c_str());
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

    // After a log rotation: this service's log, and nginx's logs through its master (USR1).
    const int signal = gwio::waitForStopSignal(stopSignals, [] {
        ZQ_Gateway_ReopenLog();
        if (const int nginx = ZQ_Gateway_NginxMasterPid(); nginx != 0) {
            ::kill(nginx, SIGUSR1);
        }
        GATEWAYD_LOG(gwlog::kStartEnd, "log files reopened");
    });
    GATEWAYD_LOG(gwlog::kStartEnd, "gateway service stopping on signal %d", signal);
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
    app.add_option("--mediad", options.mediadPath,
                   "The media daemon to start when it is not running and has not been seen running")
        ->capture_default_str();
    app.add_flag("-f,--foreground", options.foreground, "Stay in the foreground instead of detaching");
    CLI::App* init = app.add_subcommand(
        "init",
        "Give a new gateway home its admin password (as root, also create the service user and give it the home)");
    init->add_option("--password-file", options.passwordFile,
                     "File whose first line is the management API's admin password; - reads standard input "
                     "(default: a generated password, left in the home's admin-password file)");
    init->add_option("--port-password-file", options.portPasswordFile,
                     "File whose first line is the TELMI port-mode admin password; - reads standard input "
                     "(default: a generated password, left in the home's port-admin-password file)");
    init->fallthrough();
    CLI::App* check = app.add_subcommand(
        "check", "Check gateway.json against its schema (docs/configuration.md) and list every problem");
    check->add_option("--file", options.settingsFile, "The settings file to check (default: the home's gateway.json)");
    check->fallthrough();
    CLI::App* backup = app.add_subcommand(
        "backup",
        "Write the home's device store (a consistent copy, while the gateway runs), settings and keys "
        "to one owner-only file");
    CLI::App* restore = app.add_subcommand(
        "restore", "Put a backup in place of the home's device store, settings and keys (the gateway must be stopped)");
    for (CLI::App* command : {backup, restore}) {
        command->add_option("file", options.backupFile, "The backup file")->required();
        command->fallthrough();
    }
    CLI::App* passwd = app.add_subcommand(
        "passwd",
        "Give the management API's admin a new password, typed twice (or one line of standard input), "
        "without the old one: for the home's owner when it is lost");
    passwd->add_flag("--port-mode", options.portMode, "The TELMI \"admin\" that port mode asks for instead");
    passwd->fallthrough();
    CLI11_PARSE(app, argc, argv);

    if (!options.home.empty()) {
        ::setenv("ZQ_GATEWAY_HOME", options.home.c_str(), 1);
    }
    if (check->parsed()) {
        return runCheck(options);
    }
    if (backup->parsed() || restore->parsed()) {
        return runBackup(options, restore->parsed());
    }
    if (passwd->parsed()) {
        return runPasswd(options);
    }
    return init->parsed() ? runInit(options) : runService(options);
}
