// The configuration store over the fake's settings.
#include "FakePlatform.h"

using fake::fakePlatform;

namespace {

class FakeTELMICfg : public ZQConfigMgr::CTELMICfg {
public:
    int getTELMIParam() override {
        std::lock_guard<std::recursive_mutex> lock(fakePlatform().mutex);
        return fakePlatform().telmiParam;
    }
    int setTELMIParam(int value) override {
        std::lock_guard<std::recursive_mutex> lock(fakePlatform().mutex);
        auto& platform = fakePlatform();
        platform.record("config.setTELMIParam " + std::to_string(value));
        if (platform.setTELMIParamResult == 0) {
            platform.telmiParam = value;
        }
        return platform.setTELMIParamResult;
    }
};

class FakeUserCfg : public ZQConfigMgr::CUserCfg {
public:
    std::string getRealm() override {
        std::lock_guard<std::recursive_mutex> lock(fakePlatform().mutex);
        return fakePlatform().realm;
    }
    int getDigestHA1(std::string& ha1, const char* user) override {
        std::lock_guard<std::recursive_mutex> lock(fakePlatform().mutex);
        auto& known = fakePlatform().gatewayHA1;
        auto it = known.find(user);
        if (it == known.end()) {
            return -1;
        }
        ha1 = it->second;
        return 0;
    }
};

class FakePrivateCfg : public ZQConfigMgr::CPrivateCfg {
public:
    int getInternalCommParams(ZQConfigMgr::tagInternalCommunicationInfo& info) override {
        std::lock_guard<std::recursive_mutex> lock(fakePlatform().mutex);
        info.timeout = fakePlatform().mediaTimeoutMs;
        return 0;
    }
};

}  // namespace

std::shared_ptr<ZQConfigMgr::CTELMICfg> ZQ_ConfigMgr_GetTELMICfg() { return std::make_shared<FakeTELMICfg>(); }

std::shared_ptr<ZQConfigMgr::CUserCfg> ZQ_ConfigMgr_GetUserCfg() {
    std::lock_guard<std::recursive_mutex> lock(fakePlatform().mutex);
    return fakePlatform().userCfgPresent ? std::make_shared<FakeUserCfg>() : nullptr;
}

std::shared_ptr<ZQConfigMgr::CPrivateCfg> ZQ_ConfigMgr_GetPrivateCfg() {
    std::lock_guard<std::recursive_mutex> lock(fakePlatform().mutex);
    return fakePlatform().privateCfgPresent ? std::make_shared<FakePrivateCfg>() : nullptr;
}
