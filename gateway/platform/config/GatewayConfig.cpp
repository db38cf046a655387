#include "config/GatewayConfig.h"

#include "JsonText.h"
#include "config/FileLock.h"
#include "config/NetworkRange.h"
#include "config/SettingsSchema.h"

#include <fstream>
#include <sstream>

namespace zqgw {
namespace {

using ZQGateway::tagGatewaySettings;

int intMember(const Json::Value& root, const char* key, int fallback, int low, int high) {
    const Json::Value& v = root[key];
    return v.isInt() && v.asInt() >= low && v.asInt() <= high ? v.asInt() : fallback;
}

std::string textMember(const Json::Value& root, const char* key, const std::string& fallback) {
    const Json::Value& v = root[key];
    return v.isString() ? v.asString() : fallback;
}

// Only well-formed ranges are taken: a range that cannot be understood allows nothing.
std::vector<std::string> networksMember(const Json::Value& root, const char* key) {
    std::vector<std::string> networks;
    const Json::Value& v = root[key];
    for (Json::ArrayIndex i = 0; v.isArray() && i < v.size(); ++i) {
        if (v[i].isString() && NetworkRange::parse(v[i].asString())) {
            networks.push_back(v[i].asString());
        }
    }
    return networks;
}

void readRange(const Json::Value& root, const char* key, uint16_t& first, uint16_t& last) {
    const Json::Value& v = root[key];
    if (v.isArray() && v.size() == 2 && v[0].isInt() && v[1].isInt() && v[0].asInt() >= 1 &&
        v[0].asInt() <= v[1].asInt() && v[1].asInt() <= 65535) {
        first = static_cast<uint16_t>(v[0].asInt());
        last = static_cast<uint16_t>(v[1].asInt());
    }
}

void readHA1s(const Json::Value& users, std::map<std::string, std::string>& ha1s) {
    if (users.isObject()) {
        for (const std::string& name : users.getMemberNames()) {
            if (users[name].isString()) {
                ha1s[name] = users[name].asString();
            }
        }
    }
}

Json::Value ha1Object(const std::map<std::string, std::string>& ha1s) {
    Json::Value object(Json::objectValue);
    for (const auto& [name, ha1] : ha1s) {
        object[name] = ha1;
    }
    return object;
}

ConfigContent fromJson(const Json::Value& root) {
    ConfigContent c;
    tagGatewaySettings& s = c.settings;
    c.telmiParam = intMember(root, "telmiParam", c.telmiParam, INT32_MIN, INT32_MAX);
    s.realm = textMember(root, "realm", s.realm);
    s.commPort = static_cast<uint16_t>(intMember(root, "commPort", s.commPort, 0, 65535));
    s.mediaTimeoutMs = static_cast<uint16_t>(intMember(root, "mediaTimeoutMs", s.mediaTimeoutMs, 0, 65535));
    readRange(root, "httpPorts", s.httpPortFirst, s.httpPortLast);
    readRange(root, "rtspPorts", s.rtspPortFirst, s.rtspPortLast);
    s.nonceLifetimeSec = intMember(root, "nonceLifetimeSec", s.nonceLifetimeSec, 1, INT32_MAX);
    s.lockPeriodSec = intMember(root, "lockPeriodSec", s.lockPeriodSec, 1, INT32_MAX);
    s.listenerCheckSec = intMember(root, "listenerCheckSec", s.listenerCheckSec, 0, 86400);
    s.logLevel = logLevelOf(root["logLevel"]).value_or(s.logLevel);
    s.logFile = textMember(root, "logFile", s.logFile);
    s.managementPort = static_cast<uint16_t>(intMember(root, "managementPort", s.managementPort, 1, 65535));
    s.telmiUserPort = static_cast<uint16_t>(intMember(root, "telmiUserPort", s.telmiUserPort, 0, 65535));
    s.serviceUser = textMember(root, "serviceUser", s.serviceUser);
    s.allowedDeviceNetworks = networksMember(root, "allowedDeviceNetworks");
    readHA1s(root["users"], c.userHA1);
    readHA1s(root["managers"], c.managerHA1);
    return c;
}

}  // namespace

Json::Value contentJson(const ConfigContent& c) {
    const tagGatewaySettings& s = c.settings;
    Json::Value root(Json::objectValue);
    root["telmiParam"] = c.telmiParam;
    root["realm"] = s.realm;
    root["commPort"] = s.commPort;
    root["mediaTimeoutMs"] = s.mediaTimeoutMs;
    root["httpPorts"].append(s.httpPortFirst);
    root["httpPorts"].append(s.httpPortLast);
    root["rtspPorts"].append(s.rtspPortFirst);
    root["rtspPorts"].append(s.rtspPortLast);
    root["nonceLifetimeSec"] = s.nonceLifetimeSec;
    root["lockPeriodSec"] = s.lockPeriodSec;
    root["listenerCheckSec"] = s.listenerCheckSec;
    root["logLevel"] = s.logLevel;
    root["logFile"] = s.logFile;
    root["managementPort"] = s.managementPort;
    root["telmiUserPort"] = s.telmiUserPort;
    root["serviceUser"] = s.serviceUser;
    root["allowedDeviceNetworks"] = Json::Value(Json::arrayValue);
    for (const std::string& network : s.allowedDeviceNetworks) {
        root["allowedDeviceNetworks"].append(network);
    }
    root["users"] = ha1Object(c.userHA1);
    root["managers"] = ha1Object(c.managerHA1);
    return root;
}

namespace {

bool sameFile(const struct stat& a, const struct stat& b) {
    return a.st_ino == b.st_ino && a.st_size == b.st_size && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
           a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

}  // namespace

GatewayConfig& GatewayConfig::instance() {
    static GatewayConfig config;
    return config;
}

std::string GatewayConfig::pathLocked() {
    if (path_.empty()) {
        path_ = ZQ_Gateway_HomePath(ZQGateway::kSettingsFile);
    }
    return path_;
}

void GatewayConfig::refreshLocked(bool present, const struct stat& now) {
    if (!present) {
        cached_ = std::make_shared<const ConfigContent>();
        loaded_ = false;
        status_ = ZQGateway::configOk;
        return;
    }
    if (loaded_ && sameFile(now, stamp_)) {
        return;
    }
    std::ifstream in(path_);
    std::stringstream text;
    text << in.rdbuf();
    Json::Value root;
    std::string errors;
    // The file may have been edited by hand: comments and the like are forgiven.
    if (in && gwapi::parseJson(text.str(), root, errors, {false}) && root.isObject()) {
        cached_ = std::make_shared<const ConfigContent>(fromJson(root));
        status_ = ZQGateway::configOk;
    } else {
        cached_ = std::make_shared<const ConfigContent>();
        status_ = ZQGateway::configUnreadable;
    }
    stamp_ = now;
    loaded_ = true;
}

namespace {

struct HeldReads {
    bool held = false;
    std::optional<GatewayConfig::Snapshot> snapshot;
};

thread_local HeldReads heldReads;

}  // namespace

void GatewayConfig::holdReads(bool hold) {
    heldReads.held = hold;
    heldReads.snapshot.reset();
}

GatewayConfig::Snapshot GatewayConfig::read() {
    if (heldReads.snapshot) {
        return *heldReads.snapshot;
    }
    Snapshot fresh = readFile();
    if (heldReads.held) {
        heldReads.snapshot = fresh;
    }
    return fresh;
}

GatewayConfig::Snapshot GatewayConfig::readFile() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (pathLocked().empty()) {
        return {ZQGateway::configNoHome, std::make_shared<const ConfigContent>()};
    }
    if (!watch_) {
        watch_.emplace(path_);
    }
    if (watch_->changed()) {
        struct stat now {};
        refreshLocked(::stat(path_.c_str(), &now) == 0, now);
    }
    return {status_, cached_};
}

int GatewayConfig::modify(const std::function<int(ConfigContent&)>& change) {
    std::lock_guard<std::mutex> lock(mutex_);
    const std::string lockPath = ZQ_Gateway_HomePath("gateway.json.lock");
    if (lockPath.empty() || pathLocked().empty()) {
        return ZQGateway::configNoHome;
    }
    FileLock fileLock(lockPath);
    if (!fileLock.held()) {
        return ZQGateway::configWriteFailed;
    }
    struct stat now {};
    refreshLocked(::stat(path_.c_str(), &now) == 0, now);
    int result = status_;
    ConfigContent next = *cached_;
    if (result == ZQGateway::configOk) {
        result = change(next);
    }
    if (result == ZQGateway::configOk) {
        if (ZQ_Gateway_WriteFileAtomically(path_, gwapi::indentedJson(contentJson(next)) + "\n", 0600) != 0) {
            result = ZQGateway::configWriteFailed;
        } else {
            loaded_ = false;  // the next read takes the stamp of the new file
            refreshLocked(::stat(path_.c_str(), &now) == 0, now);
        }
    }
    heldReads.snapshot.reset();  // a thread sees its own writes
    return result;
}

}  // namespace zqgw
