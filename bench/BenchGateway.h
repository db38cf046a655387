// The one gateway home the benchmarks of a run share, filled as they need it: devices, TELMI
// users added through the library, bindings written straight to the device store, and the
// media daemon and nginx running as in a gateway.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ChildProgram.h"
#include "GatewayTestHome.h"

namespace bench {

constexpr const char* kUserPassword = "Bench#Pass2024";
constexpr const char* kAdminPassword = "Adm1n!bench";
constexpr const char* kMethod = "GET";
constexpr const char* kLockKey = "10.0.0.1";

class BenchGateway {
public:
    // Creates the home and points this process at it: before any platform call.
    BenchGateway();
    ~BenchGateway();
    BenchGateway(const BenchGateway&) = delete;
    BenchGateway& operator=(const BenchGateway&) = delete;

    const std::string& home() const { return home_.path(); }

    // Starts the media daemon, the library and nginx, as the host does at start-up.
    void startServices();

    // Grows the store to count TELMI users, one device each; the name of the last added.
    std::string ensureUsers(int count);
    // Grows the store to count bindings written straight to it (nothing listens on them); the
    // HTTP port of the last added.
    unsigned short ensureStoredBindings(int count);
    // Access IDs of count further devices registered for binding through the library.
    std::vector<std::string> newDevicesToBind(int count);

    // count Digest answers to one fresh nonce, with nonce counts 1 to count, as a client sends
    // them: the gateway accepts each (nonce, count) once.
    std::vector<std::string> clientAnswers(const std::string& user, const std::string& password, int count) const;
    std::string userHA1(const std::string& user) const;
    std::string adminHA1() const;

private:
    std::string registerDevice(const std::string& accessId);

    gwtest::TempHome home_;
    std::unique_ptr<gwtest::Program> mediad_;
    int users_ = 0;
    int storedBindings_ = 0;
    int devicesToBind_ = 0;
    unsigned short lastStoredHttpPort_ = 0;
};

}  // namespace bench
