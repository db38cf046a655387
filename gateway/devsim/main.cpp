// zqdevsim: simulated encoding devices for demos and tests. Each device serves a TELMI HTTP
// interface and an RTSP source on loopback ports and, when asked, registers with the gateway
// through its management API.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "DeviceRegistration.h"
#include "DeviceSpec.h"
#include "DevsimLog.h"
#include "ManagementClient.h"
#include "RtspServer.h"
#include "SecretInput.h"
#include "StopSignals.h"
#include "TelmiServer.h"

using namespace devsim;

namespace {

// A registration may wait for the gateway to bring up listeners.
constexpr time_t kRegistrationReadSeconds = 30;

struct Options {
    DeviceRun run;
    std::string devicesFile;
    std::string registerUrl;
    std::string passwordFile;
    bool unregisterOnExit = false;
    size_t maxRtspClients = 256;
    size_t httpThreads = 16;
};

// Registers every device, or none: on a failure the ones already registered are removed again.
bool registerAll(gwapi::ManagementClient& gateway, const std::vector<DeviceSpec>& devices,
                 std::vector<std::string>& indexes) {
    for (const auto& device : devices) {
        std::string index, error;
        if (!registerDevice(gateway, device, index, error)) {
            log(LogLevel::error, "%s", error.c_str());
            for (const auto& registered : indexes) {
                if (!unregisterDevice(gateway, registered, error)) {
                    log(LogLevel::warning, "%s", error.c_str());
                }
            }
            indexes.clear();
            return false;
        }
        log(LogLevel::info, "device %s registered as %s", device.deviceID.c_str(), index.c_str());
        indexes.push_back(index);
    }
    return true;
}

bool unregisterAll(gwapi::ManagementClient& gateway, const std::vector<std::string>& indexes) {
    bool all = true;
    for (const auto& index : indexes) {
        std::string error;
        if (unregisterDevice(gateway, index, error)) {
            log(LogLevel::info, "device index %s removed from the gateway", index.c_str());
        } else {
            log(LogLevel::warning, "%s", error.c_str());
            all = false;
        }
    }
    return all;
}

int simulate(const Options& options) {
    std::vector<DeviceSpec> devices;
    std::string error;
    if (!options.devicesFile.empty() && !loadDevices(options.devicesFile, devices, error)) {
        std::fprintf(stderr, "zqdevsim: %s\n", error.c_str());
        return 2;
    }
    if (options.devicesFile.empty()) {
        devices = generateDevices(options.run);
    }
    error = checkDevices(devices);
    if (!error.empty()) {
        std::fprintf(stderr, "zqdevsim: %s\n", error.c_str());
        return 2;
    }
    std::unique_ptr<gwapi::ManagementClient> gateway;
    if (!options.registerUrl.empty()) {
        std::string password;
        if (!gwapi::checkManagementUrl(options.registerUrl, error) ||
            !gwapi::readSecret("gateway admin password", options.passwordFile, password, error)) {
            std::fprintf(stderr, "zqdevsim: %s\n", error.c_str());
            return 2;
        }
        gateway = std::make_unique<gwapi::ManagementClient>(options.registerUrl, password, kRegistrationReadSeconds);
    }

    // Every thread started from here on inherits the blocked stop signals; main takes them.
    const sigset_t stopSignals = gwio::blockStopSignals();

    RtspServer rtsp(devices, options.maxRtspClients);
    if (!rtsp.start(error)) {
        log(LogLevel::error, "not started: %s", error.c_str());
        return 1;
    }
    std::vector<std::unique_ptr<TelmiServer>> telmi;
    for (const auto& device : devices) {
        telmi.push_back(std::make_unique<TelmiServer>(device, options.httpThreads));
        if (!telmi.back()->start(error)) {
            log(LogLevel::error, "not started: %s", error.c_str());
            return 1;
        }
    }
    std::vector<std::string> indexes;
    if (gateway && !registerAll(*gateway, devices, indexes)) {
        return 1;
    }
    for (size_t i = 0; i < devices.size(); ++i) {
        const DeviceSpec& device = devices[i];
        std::printf("%s %s %d http://127.0.0.1:%d rtsp://127.0.0.1:%d %s\n", device.deviceID.c_str(),
                    protocolName(device.protocol), device.category, device.httpPort, device.rtspPort,
                    indexes.empty() ? "-" : indexes[i].c_str());
    }
    std::fflush(stdout);
    log(LogLevel::info, "simulated devices running: %zu", devices.size());

    const int signal = gwio::waitForStopSignal(stopSignals);
    log(LogLevel::info, "stopping on signal %d", signal);
    const bool unregistered = !options.unregisterOnExit || unregisterAll(*gateway, indexes);
    telmi.clear();
    rtsp.stop();
    log(LogLevel::info, "stopped");
    return unregistered ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app {
        "Simulated encoding devices: each serves a TELMI HTTP interface and an RTSP source (a PCMU "
        "tone) on 127.0.0.1, and can register with the gateway."};
    const auto numbered = app.add_option_group("numbered devices", "A run of devices on consecutive ports");
    numbered->add_option("-n,--count", options.run.count, "How many devices")->check(CLI::Range(1, 1000));
    numbered->add_option("--first-http-port", options.run.firstHttpPort, "TELMI port of the first device")
        ->check(CLI::Range(1, 65535));
    numbered->add_option("--first-rtsp-port", options.run.firstRtspPort, "RTSP port of the first device")
        ->check(CLI::Range(1, 65535));
    numbered->add_option("--protocol", options.run.protocol, "Access protocol of the devices")
        ->check(CLI::IsMember({"tarn", "tarn5", "alternating"}));
    numbered->add_option("--category", options.run.category, "Device category")
        ->check(CLI::IsMember({"1", "2", "alternating"}));
    numbered->add_option("--name-prefix", options.run.namePrefix, "Names are this and the device's number");
    numbered->add_option("--id-prefix", options.run.idPrefix,
                         "Device IDs are this and the number in at least 3 digits");
    const auto file =
        app.add_option("--devices", options.devicesFile, "JSON file describing the devices")->check(CLI::ExistingFile);
    numbered->excludes(file);
    const auto registration = app.add_option("--register", options.registerUrl,
                                             "Register every device with the gateway's management API at this "
                                             "URL (e.g. http://127.0.0.1:8600); the admin password is read from "
                                             "--admin-password-file or standard input");
    app.add_option("--admin-password-file", options.passwordFile, "File whose first line is the admin password")
        ->check(CLI::ExistingFile)
        ->needs(registration);
    app.add_flag("--unregister-on-exit", options.unregisterOnExit, "Remove the devices from the gateway on exit")
        ->needs(registration);
    app.add_option("--http-threads", options.httpThreads,
                   "TELMI connections each device serves at once (a kept-alive connection holds one)")
        ->check(CLI::Range(1, 1024))
        ->capture_default_str();
    app.add_option("--max-rtsp-clients", options.maxRtspClients, "RTSP connections at once, all devices together")
        ->check(CLI::PositiveNumber);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : 2;
    }
    return simulate(options);
}
