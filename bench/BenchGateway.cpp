#include "BenchGateway.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "ZQBase.h"
#include "ZQConfigMgr.h"
#include "ZQDeviceMgr.h"
#include "ZQGatewayDevices.h"
#include "ZQGatewayHome.h"
#include "ZQMediaFrame.h"
#include "ZQTELMIMgrBus.h"
#include "base/Md5Hex.h"

namespace bench {
namespace {

constexpr const char* kRealm = "TELMI";
constexpr const char* kUri = "/TELMI/System/deviceInfo";
constexpr int kNonceBytes = 57;
constexpr int kUsersPerCall = 1000;

void require(bool condition, const std::string& what) {
    if (!condition) {
        throw std::runtime_error(what);
    }
}

std::string numbered(const char* prefix, int number) {
    char text[32];
    std::snprintf(text, sizeof(text), "%s%05d", prefix, number);
    return text;
}

}  // namespace

BenchGateway::BenchGateway() {
    require(!home_.path().empty(), "cannot create a temporary gateway home");
    ::setenv("ZQ_GATEWAY_HOME", home_.path().c_str(), 1);
    ZQGateway::tagGatewaySettings s;
    ZQ_Gateway_GetSettings(s);
    s.realm = kRealm;
    // Clear of the gateway's default ranges and of the integration tests' ports.
    s.httpPortFirst = 12000;
    s.httpPortLast = 13499;
    s.rtspPortFirst = 13500;
    s.rtspPortLast = 14999;
    s.nonceLifetimeSec = 86400;                 // one nonce serves a whole run
    s.allowedDeviceNetworks = {"127.0.0.0/8"};  // the bench's devices are addresses on loopback
    s.logLevel = 4;
    require(ZQ_Gateway_SetSettings(s) == 0 && ZQ_Gateway_Init(kAdminPassword) == 0, "cannot set up the gateway home");
    require(ZQ_TELMIMgrBus_SetProtocolEnable(1) == 0, "cannot switch TELMI on");
}

BenchGateway::~BenchGateway() {
    ZQ_TELMIMgrBus_Stop();
    ZQBase::CNginxOper::getInstance()->Quit();
}

void BenchGateway::startServices() {
    mediad_ = std::make_unique<gwtest::Program>(
        std::vector<std::string> {ZQ_MEDIAD_PATH, "--home", home_.path(), "--foreground"});
    const std::string socket = ZQ_Gateway_HomePath(ZQGateway::kMediaSocketPath);
    require(gwtest::eventually([&socket] {
                struct stat st {};
                return ::stat(socket.c_str(), &st) == 0;
            }),
            "the media daemon did not start");
    ZQ_TELMIMgrBus_Start();
    require(ZQBase::CNginxOper::getInstance()->Reboot() != 0, "nginx did not start");
}

std::string BenchGateway::registerDevice(const std::string& accessId) {
    ZQGateway::tagDeviceInfo info;
    info.protocol = 4;
    info.tarn5DeviceID = accessId;
    info.name = accessId;
    info.telmiAddress = "http://127.0.0.1:18080";
    info.rtspAddress = "rtsp://127.0.0.1:18554";
    std::string index;
    require(ZQ_DeviceMgr_RegisterDevice(index, info) == 0, "cannot register " + accessId);
    return index;
}

std::string BenchGateway::ensureUsers(int count) {
    while (users_ < count) {
        std::vector<ZQTELMIMgrBus::tagTELMIUserInput> batch;
        for (int i = 0; i < kUsersPerCall && users_ + static_cast<int>(batch.size()) < count; ++i) {
            const int number = users_ + static_cast<int>(batch.size()) + 1;
            ZQTELMIMgrBus::tagTELMIUserInput input;
            std::memset(&input, 0, sizeof(input));
            std::snprintf(input.userName, sizeof(input.userName), "%s", numbered("user", number).c_str());
            std::snprintf(input.password, sizeof(input.password), "%s", kUserPassword);
            std::snprintf(input.deviceID, sizeof(input.deviceID), "%s", numbered("CAM", number).c_str());
            registerDevice(input.deviceID);
            batch.push_back(input);
        }
        std::vector<ZQDeviceMgr::tagAddUserRet> results;
        require(ZQ_TELMIMgrBus_AddUser(results, batch) == 0, "AddUser failed");
        for (const auto& result : results) {
            require(result.result == 0, "AddUser refused a user: " + std::to_string(result.result));
        }
        users_ += static_cast<int>(batch.size());
    }
    return numbered("user", users_);
}

unsigned short BenchGateway::ensureStoredBindings(int count) {
    while (storedBindings_ < count) {
        ++storedBindings_;
        ZQDeviceMgr::tagTELMIPort request;
        const std::string index = registerDevice(numbered("STORED", storedBindings_));
        std::snprintf(request.deviceIndex, sizeof(request.deviceIndex), "%s", index.c_str());
        require(getHttpPort(&request.httpPort) != 0 && getRtspPort(&request.rtspPort) != 0, "no free port");
        std::shared_ptr<ZQDeviceMgr::CTELMIPort> port;
        require(ZQ_DeviceMgr_BindTELMIPort(port, request) == 0, "cannot store a binding");
        lastStoredHttpPort_ = request.httpPort;
    }
    return lastStoredHttpPort_;
}

std::vector<std::string> BenchGateway::newDevicesToBind(int count) {
    std::vector<std::string> ids;
    for (int i = 0; i < count; ++i) {
        ids.push_back(numbered("BIND", ++devicesToBind_));
        registerDevice(ids.back());
    }
    return ids;
}

std::vector<std::string> BenchGateway::clientAnswers(const std::string& user, const std::string& password,
                                                     int count) const {
    char nonce[kNonceBytes] = {};
    require(CreateNonce(nonce, sizeof(nonce)) == 0, "CreateNonce failed");
    const std::string ha1 = zqbase::md5Hex(user + ":" + kRealm + ":" + password);
    const std::string ha2 = zqbase::md5Hex(std::string(kMethod) + ":" + kUri);
    std::vector<std::string> answers;
    for (int n = 1; n <= count; ++n) {
        char nc[9];
        std::snprintf(nc, sizeof(nc), "%08x", static_cast<unsigned>(n));
        const std::string response = zqbase::md5Hex(ha1 + ":" + nonce + ":" + nc + ":0a4f113b:auth:" + ha2);
        answers.push_back(std::string("Digest username=\"") + user + "\", realm=\"" + kRealm + "\", nonce=\"" + nonce +
                          "\", uri=\"" + kUri + "\", qop=auth, nc=" + nc + ", cnonce=\"0a4f113b\", response=\"" +
                          response + "\", algorithm=MD5");
    }
    return answers;
}

std::string BenchGateway::userHA1(const std::string& user) const {
    std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIUser>> users;
    ZQ_DeviceMgr_GetAllTELMIUser(users);
    for (const auto& candidate : users) {
        if (candidate->getUserName() == user) {
            return candidate->getDigestPassword();
        }
    }
    throw std::runtime_error("no user " + user);
}

std::string BenchGateway::adminHA1() const {
    std::string ha1;
    auto config = ZQ_ConfigMgr_GetUserCfg();
    require(config && config->getDigestHA1(ha1, "admin") == 0, "no admin HA1");
    return ha1;
}

}  // namespace bench
