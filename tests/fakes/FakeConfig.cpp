// The configuration store over the fake's settings, instant sleeps and captured log lines; the
// rest of the runtime is the real one.
#include <cstdarg>
#include <cstdio>

#include "FakePlatform.h"
#include "kmt.h"
#include "tvlog.h"

using fake::fakePlatform;
using fake::lockPlatform;

namespace {

class FakeTELMICfg : public ZQConfigMgr::CTELMICfg {
public:
    int getTELMIParam() override { return fake::locked(fakePlatform().telmiParam); }
    int setTELMIParam(int value) override {
        return fakePlatform().perform("config.setTELMIParam", std::to_string(value), [value] {
            fakePlatform().telmiParam = value;
            return 0;
        });
    }
};

class FakeUserCfg : public ZQConfigMgr::CUserCfg {
public:
    std::string getRealm() override { return fake::locked(fakePlatform().realm); }
    int getDigestHA1(std::string& ha1, const char* user) override {
        auto lock = lockPlatform();
        auto it = fakePlatform().gatewayHA1.find(user);
        if (it == fakePlatform().gatewayHA1.end()) {
            return -1;
        }
        ha1 = it->second;
        return 0;
    }
};

class FakePrivateCfg : public ZQConfigMgr::CPrivateCfg {
public:
    int getInternalCommParams(ZQConfigMgr::tagInternalCommunicationInfo& info) override {
        info.timeout = fake::locked(fakePlatform().mediaTimeoutMs);
        return 0;
    }
};

}  // namespace

std::shared_ptr<ZQConfigMgr::CTELMICfg> ZQ_ConfigMgr_GetTELMICfg() { return std::make_shared<FakeTELMICfg>(); }

std::shared_ptr<ZQConfigMgr::CUserCfg> ZQ_ConfigMgr_GetUserCfg() {
    return fake::locked(fakePlatform().userCfgPresent) ? std::make_shared<FakeUserCfg>() : nullptr;
}

std::shared_ptr<ZQConfigMgr::CPrivateCfg> ZQ_ConfigMgr_GetPrivateCfg() {
    return fake::locked(fakePlatform().privateCfgPresent) ? std::make_shared<FakePrivateCfg>() : nullptr;
}

void KMT_Sleep(int ms) {
    auto lock = lockPlatform();
    fakePlatform().sleptMs += ms;
    if (fakePlatform().onSleep) {
        fakePlatform().onSleep(ms);
    }
}

void tvlog_format(int level, const char* module, const char* format, ...) {
    char text[8192];  // far longer than any line the library writes
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    auto lock = lockPlatform();
    fakePlatform().logs.push_back({level, module, format, text});
}
