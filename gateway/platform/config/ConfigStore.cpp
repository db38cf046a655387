// The configuration store's interface objects: thin views on gateway.json, read afresh per call.
#include <cstring>
#include <fstream>
#include <sstream>

#include "ZQConfigMgr.h"
#include "ZQGatewayHome.h"
#include "base/Md5Hex.h"
#include "config/GatewayConfig.h"
#include "config/SettingsSchema.h"

namespace {

using zqgw::ConfigContent;

using zqgw::GatewayConfig;

std::shared_ptr<const ConfigContent> current() { return GatewayConfig::instance().read().content; }

class TELMICfg : public ZQConfigMgr::CTELMICfg {
public:
    int getTELMIParam() override { return current()->telmiParam; }
    int setTELMIParam(int value) override {
        return GatewayConfig::instance().modify([value](ConfigContent& c) {
            c.telmiParam = value;
            return 0;
        });
    }
};

class UserCfg : public ZQConfigMgr::CUserCfg {
public:
    std::string getRealm() override { return current()->settings.realm; }
    int getDigestHA1(std::string& ha1, const char* user) override {
        if (user == nullptr) {
            return ZQGateway::configBadArgument;
        }
        const auto content = current();
        auto it = content->userHA1.find(user);
        if (it == content->userHA1.end()) {
            return ZQGateway::configBadArgument;
        }
        ha1 = it->second;
        return 0;
    }
};

class PrivateCfg : public ZQConfigMgr::CPrivateCfg {
public:
    int getInternalCommParams(ZQConfigMgr::tagInternalCommunicationInfo& info) override {
        const GatewayConfig::Snapshot config = GatewayConfig::instance().read();
        info.commPort = config.content->settings.commPort;
        info.timeout = config.content->settings.mediaTimeoutMs;
        return config.status;
    }
};

}  // namespace

std::shared_ptr<ZQConfigMgr::CTELMICfg> ZQ_ConfigMgr_GetTELMICfg() {
    static const auto cfg = std::make_shared<TELMICfg>();
    return cfg;
}

std::shared_ptr<ZQConfigMgr::CUserCfg> ZQ_ConfigMgr_GetUserCfg() {
    static const auto cfg = std::make_shared<UserCfg>();
    return ZQ_Gateway_HomeDir().empty() ? nullptr : cfg;
}

std::shared_ptr<ZQConfigMgr::CPrivateCfg> ZQ_ConfigMgr_GetPrivateCfg() {
    static const auto cfg = std::make_shared<PrivateCfg>();
    return ZQ_Gateway_HomeDir().empty() ? nullptr : cfg;
}

namespace {

// Stores HA1 = MD5(user:realm:password) in one of the content's tables; the TELMI realm when
// realm is null.
int storePassword(const char* user, const char* password, std::map<std::string, std::string> ConfigContent::*table,
                  const char* realm) {
    if (user == nullptr || password == nullptr || user[0] == '\0' || password[0] == '\0' ||
        std::strchr(user, ':') != nullptr) {
        return ZQGateway::configBadArgument;
    }
    const std::string name = user, secret = password;
    return GatewayConfig::instance().modify([&](ConfigContent& c) {
        (c.*table)[name] = zqbase::md5Hex(name + ":" + (realm != nullptr ? realm : c.settings.realm) + ":" + secret);
        return 0;
    });
}

}  // namespace

int ZQ_Gateway_SetUserPassword(const char* user, const char* password) {
    return storePassword(user, password, &ConfigContent::userHA1, nullptr);
}

int ZQ_Gateway_SetManagerPassword(const char* user, const char* password) {
    return storePassword(user, password, &ConfigContent::managerHA1, ZQGateway::kManagementRealm);
}

int ZQ_Gateway_GetManagerHA1(const std::string& user, std::string& ha1) {
    const GatewayConfig::Snapshot config = GatewayConfig::instance().read();
    const auto it = config.content->managerHA1.find(user);
    if (it == config.content->managerHA1.end()) {
        return config.status != ZQGateway::configOk ? config.status : ZQGateway::configNoUser;
    }
    ha1 = it->second;
    return 0;
}

int ZQ_Gateway_Init(const char* adminPassword) { return ZQ_Gateway_SetUserPassword("admin", adminPassword); }

void ZQ_Gateway_HoldSettings(bool hold) { GatewayConfig::holdReads(hold); }

int ZQ_Gateway_GetSettings(ZQGateway::tagGatewaySettings& settings) {
    const GatewayConfig::Snapshot config = GatewayConfig::instance().read();
    settings = config.content->settings;
    return config.status;
}

int ZQ_Gateway_SetSettings(const ZQGateway::tagGatewaySettings& settings) {
    // The rules a start checks the file against: what is stored here must pass them.
    return GatewayConfig::instance().modify([&settings](ConfigContent& c) {
        ConfigContent next = c;
        next.settings = settings;
        if (!zqgw::settingsProblems(zqgw::contentJson(next)).empty()) {
            return static_cast<int>(ZQGateway::configBadArgument);
        }
        c = next;
        return 0;
    });
}

std::vector<std::string> ZQ_Gateway_CheckSettingsFile(const std::string& path) {
    std::ifstream in(path);
    if (!in) {
        return {};
    }
    std::ostringstream text;
    text << in.rdbuf();
    return zqgw::settingsTextProblems(text.str());
}
