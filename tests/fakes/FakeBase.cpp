// The base library: Digest checks that really verify, password rating, nonces, ports and nginx.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "FakePlatform.h"
#include "base/DigestHeader.h"
#include "base/Md5Hex.h"

using fake::fakePlatform;

namespace {

std::unique_lock<std::recursive_mutex> lockPlatform() {
    return std::unique_lock<std::recursive_mutex>(fakePlatform().mutex);
}

// Verifies the header for real; nonces are not checked beyond the fake's stale list.
int verifyDigest(const std::string& method, const std::string& header, const std::string& ha1) {
    auto params = zqbase::parseDigestHeader(header);
    if (!params) {
        return -1;
    }
    auto expected = zqbase::expectedDigestResponse(*params, method, ha1);
    if (!expected || !zqbase::digestResponsesEqual(*expected, (*params)["response"])) {
        return -1;
    }
    return fakePlatform().staleNonces.count((*params)["nonce"]) ? -2 : 0;
}

int pickPort(const char* operation, unsigned short& next, unsigned short* port) {
    auto& platform = fakePlatform();
    platform.record(std::string("base.") + operation);
    if (auto injected = platform.takeInjected(operation)) {
        return *injected;
    }
    *port = next++;
    return 1;
}

}  // namespace

int ZQ_BASE_CheckDigest(const char* method, const char* authHeader, const char* ha1) {
    auto lock = lockPlatform();
    auto& platform = fakePlatform();
    platform.digestCalls.push_back({method, authHeader, ha1});
    platform.record("base.CheckDigest");
    if (!platform.digestResults.empty()) {
        int result = platform.digestResults.front();
        platform.digestResults.pop_front();
        return result;
    }
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
    std::snprintf(buf, static_cast<size_t>(len), "%s", nonce.c_str());
    return 0;
}

int GetMiddleString(const char* src, int srcLen, const char* begin, const char* end, char* out, int outLen) {
    std::string text(src, strnlen(src, static_cast<size_t>(srcLen)));
    size_t start = text.find(begin);
    if (start == std::string::npos || outLen <= 0) {
        return 0;
    }
    start += std::strlen(begin);
    size_t stop = text.find(end, start);
    if (stop == std::string::npos) {
        return 0;
    }
    size_t count = std::min(stop - start, static_cast<size_t>(outLen - 1));
    std::memcpy(out, text.data() + start, count);
    out[count] = '\0';
    return 1;
}

int mprGetMD5Hash(const unsigned char* data, int len, char* out) {
    std::string hex = zqbase::md5Hex(data, static_cast<size_t>(len));
    std::memcpy(out, hex.c_str(), hex.size() + 1);
    return 0;
}

int getHttpPort(unsigned short* port) {
    auto lock = lockPlatform();
    return pickPort("getHttpPort", fakePlatform().nextHttpPort, port);
}

int getRtspPort(unsigned short* port) {
    auto lock = lockPlatform();
    return pickPort("getRtspPort", fakePlatform().nextRtspPort, port);
}

int CheckPort(int port, int mode) {
    auto lock = lockPlatform();
    auto& platform = fakePlatform();
    platform.record("base.CheckPort " + std::to_string(port) + " mode=" + std::to_string(mode));
    return platform.listeners.count(port) ? -1 : 0;
}

int CheckPortOccupy(std::list<int> pids, std::string ip, int port, int mode) {
    auto lock = lockPlatform();
    auto& platform = fakePlatform();
    std::string pidText;
    for (int pid : pids) {
        pidText += (pidText.empty() ? "" : ",") + std::to_string(pid);
    }
    platform.record("base.CheckPortOccupy " + std::to_string(port) + " ip=" + ip + " mode=" + std::to_string(mode) +
                    " pids=" + pidText);
    auto it = platform.listeners.find(port);
    if (it == platform.listeners.end()) {
        return 0;
    }
    for (int pid : pids) {
        if (pid == it->second) {
            return 0;
        }
    }
    return 1;
}

namespace {

class FakeNginx : public ZQBase::CNginxOper {
public:
    int ModifyConfig(ZQBase::tagNginxOper op, void* arg, void* arg2) override {
        auto lock = lockPlatform();
        auto& platform = fakePlatform();
        int port = 0;
        std::memcpy(&port, arg, sizeof(port));  // the caller's record may be only 2-byte aligned
        platform.record("nginx.ModifyConfig " + std::to_string(static_cast<int>(op)) + " " + std::to_string(port) +
                        (arg2 == nullptr ? "" : " arg2"));
        if (auto injected = platform.takeInjected("ModifyConfig")) {
            return *injected;
        }
        if (op == ZQBase::addListenPort) {
            platform.nginxPorts.insert(port);
        } else {
            platform.nginxPorts.erase(port);
        }
        return 1;
    }
    int Reboot() override { return journaled("Reboot", 1); }
    int Quit() override { return journaled("Quit", 1); }
    int getPid(std::vector<int>& pids) override {
        auto lock = lockPlatform();
        auto& platform = fakePlatform();
        platform.record("nginx.getPid");
        if (auto injected = platform.takeInjected("getPid")) {
            return *injected;
        }
        pids = platform.nginxPids;
        return 1;
    }

private:
    int journaled(const char* operation, int normal) {
        auto lock = lockPlatform();
        fakePlatform().record(std::string("nginx.") + operation);
        return fakePlatform().takeInjected(operation).value_or(normal);
    }
};

}  // namespace

ZQBase::CNginxOper* ZQBase::CNginxOper::getInstance() {
    static FakeNginx nginx;
    return &nginx;
}
