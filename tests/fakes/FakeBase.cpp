// The base library: Digest checks that really verify, password rating, nonces, ports and nginx.
// The header text helpers and MD5 are the reference platform's own.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "FakePlatform.h"
#include "base/DigestHeader.h"

using fake::fakePlatform;
using fake::lockPlatform;

namespace {

// Verifies the header for real. A nonce is stale when the test names it so, and a right answer
// is accepted once per nonce and count, as on the gateway.
int verifyDigest(const std::string& method, const std::string& header, const std::string& ha1) {
    using ZQGateway::DigestParam;
    const auto params = ZQGateway::parseDigestParams(header);
    if (!params) {
        return -1;
    }
    auto expected = zqbase::expectedDigestResponse(*params, method, ha1);
    if (!expected || !zqbase::digestResponsesEqual(*expected, (*params)[DigestParam::response])) {
        return -1;
    }
    auto& platform = fakePlatform();
    const std::string nonce((*params)[DigestParam::nonce]);
    if (platform.staleNonces.count(nonce) ||
        !platform.answeredNonces.insert(nonce + "/" + std::string((*params)[DigestParam::nc])).second) {
        return -2;
    }
    return 0;
}

int pickPort(const char* operation, unsigned short& next, unsigned short* port) {
    return fakePlatform().perform(operation, "", [&] {
        *port = next++;
        return 1;
    });
}

}  // namespace

int ZQ_BASE_CheckDigest(const char* method, const char* authHeader, const char* ha1) {
    auto lock = lockPlatform();
    fakePlatform().call("base.CheckDigest");
    return verifyDigest(method, authHeader, ha1);
}

int ZQ_BASE_GetPasswrodLevel(const char* password, const char* userName) {
    auto lock = lockPlatform();
    auto& platform = fakePlatform();
    return platform.passwordLevel ? platform.passwordLevel(password, userName) : 3;
}

int CreateNonce(char* buf, int len) {
    auto lock = lockPlatform();
    std::string nonce = "nonce" + std::to_string(++fakePlatform().noncesIssued);
    if (nonce.size() >= static_cast<size_t>(len)) {  // never a cut nonce
        buf[0] = '\0';
        return -1;
    }
    std::snprintf(buf, static_cast<size_t>(len), "%s", nonce.c_str());
    return 0;
}

int getHttpPort(unsigned short* port) { return pickPort("base.getHttpPort", fakePlatform().nextHttpPort, port); }

int getRtspPort(unsigned short* port) { return pickPort("base.getRtspPort", fakePlatform().nextRtspPort, port); }

int CheckPort(int port, int mode) {
    auto lock = lockPlatform();
    fakePlatform().call("base.CheckPort", std::to_string(port) + " mode=" + std::to_string(mode));
    return fakePlatform().listeners.count(port) ? -1 : 0;
}

int CheckPortOccupy(std::list<int> pids, std::string ip, int port, int mode) {
    auto lock = lockPlatform();
    std::string pidText;
    for (int pid : pids) {
        pidText += (pidText.empty() ? "" : ",") + std::to_string(pid);
    }
    fakePlatform().call("base.CheckPortOccupy",
                        std::to_string(port) + " ip=" + ip + " mode=" + std::to_string(mode) + " pids=" + pidText);
    auto it = fakePlatform().listeners.find(port);
    return it != fakePlatform().listeners.end() && std::find(pids.begin(), pids.end(), it->second) == pids.end();
}

namespace {

class FakeNginx : public ZQBase::CNginxOper {
public:
    int ModifyConfig(ZQBase::tagNginxOper op, void* arg, void* arg2) override {
        int port = 0;
        if (arg == nullptr) {
            return 0;
        }
        std::memcpy(&port, arg, sizeof(port));  // the caller's record may be only 2-byte aligned
        const std::string detail =
            std::to_string(static_cast<int>(op)) + " " + std::to_string(port) + (arg2 == nullptr ? "" : " arg2");
        return fakePlatform().perform("nginx.ModifyConfig", detail, [&] {
            return port > 0 && port <= 65535 && (op == ZQBase::addListenPort || op == ZQBase::delListenPort) ? 1 : 0;
        });
    }
    int Reboot() override { return fakePlatform().call("nginx.Reboot").value_or(1); }
    int Quit() override { return fakePlatform().call("nginx.Quit").value_or(1); }
    int getPid(std::vector<int>& pids) override {
        return fakePlatform().perform("nginx.getPid", "", [&] {
            pids.insert(pids.end(), fakePlatform().nginxPids.begin(), fakePlatform().nginxPids.end());
            return 1;
        });
    }
};

}  // namespace

ZQBase::CNginxOper* ZQBase::CNginxOper::getInstance() {
    static FakeNginx nginx;
    return &nginx;
}
