#include "config/SettingsSchema.h"

#include <strings.h>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <sstream>

#include "JsonText.h"
#include "ZQGatewayHome.h"
#include "config/NetworkRange.h"

namespace zqgw {
namespace {

using Problems = std::vector<std::string>;

constexpr int64_t kNoLimit = INT32_MAX;
constexpr const char* kRealmRule = "1 to 64 characters, no '\"'";
constexpr const char* kServiceUserRule = "letters, digits, '_' and '-', at most 32, not starting with '-', not root";

bool validRealm(const std::string& realm) {
    return !realm.empty() && realm.size() <= 64 && realm.find('"') == std::string::npos;
}

bool validServiceUser(const std::string& name) {
    return !name.empty() && name.size() <= 32 && name != "root" && name[0] != '-' &&
           name.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-") ==
               std::string::npos;
}

// Writes "key: text" for one problem.
void report(Problems& problems, const std::string& key, const std::string& text) {
    problems.push_back(key + ": " + text);
}

std::string shown(const Json::Value& value) {
    std::string text = gwapi::compactJson(value);
    return text.size() > 40 ? text.substr(0, 37) + "..." : text;
}

// The integer, when value is one in [low, high]; otherwise a problem.
std::optional<int64_t> integerIn(const Json::Value& value, const std::string& key, int64_t low, int64_t high,
                                 Problems& problems) {
    if (!gwapi::isJsonInteger(value)) {
        report(problems, key, shown(value) + " is not an integer");
        return std::nullopt;
    }
    if (!value.isInt64() || value.asInt64() < low || value.asInt64() > high) {
        report(problems, key,
               shown(value) + " is out of range (" + std::to_string(low) + ".." +
                   (high == kNoLimit ? std::string("") : std::to_string(high)) + ")");
        return std::nullopt;
    }
    return value.asInt64();
}

struct PortRange {
    int64_t first, last;
    bool holds(int64_t port) const { return port >= first && port <= last; }
};

std::optional<PortRange> portRange(const Json::Value& value, const std::string& key, Problems& problems) {
    if (!value.isArray() || value.size() != 2) {
        report(problems, key, shown(value) + " is not [first, last]");
        return std::nullopt;
    }
    const auto first = integerIn(value[0], key + "[0]", 1, 65535, problems);
    const auto last = integerIn(value[1], key + "[1]", 1, 65535, problems);
    if (!first || !last) {
        return std::nullopt;
    }
    if (*first > *last) {
        report(problems, key,
               "the first port " + std::to_string(*first) + " comes after the last " + std::to_string(*last));
        return std::nullopt;
    }
    return PortRange {*first, *last};
}

void checkText(const Json::Value& value, const std::string& key, const std::function<bool(const std::string&)>& valid,
               const std::string& rule, Problems& problems) {
    if (!value.isString()) {
        report(problems, key, shown(value) + " is not a string");
    } else if (valid && !valid(value.asString())) {
        report(problems, key, shown(value) + " is refused: " + rule);
    }
}

// HA1 tables: user name -> 32 lowercase hexadecimal digits.
void checkHA1s(const Json::Value& value, const std::string& key, Problems& problems) {
    if (!value.isObject()) {
        report(problems, key, shown(value) + " is not an object");
        return;
    }
    for (const std::string& name : value.getMemberNames()) {
        const Json::Value& ha1 = value[name];
        const bool valid = ha1.isString() && ha1.asString().size() == 32 &&
                           ha1.asString().find_first_not_of("0123456789abcdef") == std::string::npos;
        if (!valid) {
            report(problems, key + "." + name, "not an HA1 (32 lowercase hexadecimal digits)");
        }
    }
}

void checkNetworks(const Json::Value& value, const std::string& key, Problems& problems) {
    if (!value.isArray()) {
        report(problems, key, shown(value) + " is not an array");
        return;
    }
    for (Json::ArrayIndex i = 0; i < value.size(); ++i) {
        checkText(
            value[i], key + "[" + std::to_string(i) + "]",
            [](const std::string& text) { return NetworkRange::parse(text).has_value(); },
            "not a network in CIDR notation", problems);
    }
}

size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) {
        row[j] = j;
    }
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

// The ports of the services nginx runs beside the device ranges.
struct ServicePorts {
    std::optional<int64_t> management, user;
};

void checkPortLayout(const std::optional<PortRange>& http, const std::optional<PortRange>& rtsp,
                     const ServicePorts& services, Problems& problems) {
    if (http && rtsp && http->first <= rtsp->last && rtsp->first <= http->last) {
        report(problems, "rtspPorts", "overlaps httpPorts");
    }
    const std::pair<const char*, std::optional<int64_t>> ports[] = {{"managementPort", services.management},
                                                                    {"telmiUserPort", services.user}};
    for (const auto& [key, port] : ports) {
        if (!port || *port == 0) {
            continue;
        }
        for (const auto& [rangeKey, range] : {std::pair("httpPorts", http), std::pair("rtspPorts", rtsp)}) {
            if (range && range->holds(*port)) {
                report(problems, key, std::to_string(*port) + " lies in " + rangeKey);
            }
        }
    }
    if (services.management && services.user && *services.management == *services.user) {
        report(problems, "telmiUserPort", "is managementPort too");
    }
}

}  // namespace

std::optional<int> logLevelOf(const Json::Value& value) {
    static const char* const kNames[] = {"DEBUG", "INFO", "WARN", "ERROR"};
    constexpr int kLowest = 2;
    if (gwapi::isJsonInteger(value) && value.isInt() && value.asInt() >= kLowest && value.asInt() < kLowest + 4) {
        return value.asInt();
    }
    for (int i = 0; value.isString() && i < 4; ++i) {
        if (::strcasecmp(value.asCString(), kNames[i]) == 0) {
            return kLowest + i;
        }
    }
    return std::nullopt;
}

std::vector<std::string> settingsProblems(const Json::Value& root) {
    Problems problems;
    if (!root.isObject()) {
        problems.emplace_back("not a JSON object");
        return problems;
    }
    // Keys left out take their defaults, which the layout rules apply to as well.
    const ZQGateway::tagGatewaySettings defaults;
    std::optional<PortRange> http = PortRange {defaults.httpPortFirst, defaults.httpPortLast};
    std::optional<PortRange> rtsp = PortRange {defaults.rtspPortFirst, defaults.rtspPortLast};
    ServicePorts services {defaults.managementPort, defaults.telmiUserPort};

    using Check = std::function<void(const Json::Value&, const std::string&)>;
    const auto integer = [&problems](int64_t low, int64_t high, std::optional<int64_t>* into = nullptr) -> Check {
        return [&problems, low, high, into](const Json::Value& v, const std::string& key) {
            const auto value = integerIn(v, key, low, high, problems);
            if (into != nullptr) {
                *into = value;
            }
        };
    };
    const auto text = [&problems](const std::function<bool(const std::string&)>& valid, const char* rule) -> Check {
        return [&problems, valid, rule](const Json::Value& v, const std::string& key) {
            checkText(v, key, valid, rule, problems);
        };
    };
    const auto range = [&problems](std::optional<PortRange>& into) -> Check {
        return [&problems, &into](const Json::Value& v, const std::string& key) { into = portRange(v, key, problems); };
    };
    const auto with = [&problems](void (*check)(const Json::Value&, const std::string&, Problems&)) -> Check {
        return [&problems, check](const Json::Value& v, const std::string& key) { check(v, key, problems); };
    };
    const Check logLevel = [&problems](const Json::Value& v, const std::string& key) {
        if (!logLevelOf(v)) {
            report(problems, key, shown(v) + " is not a log level (DEBUG, INFO, WARN, ERROR or 2..5)");
        }
    };
    const std::map<std::string, Check> checks = {
        {"telmiParam", integer(0, 1)},
        {"realm", text(validRealm, kRealmRule)},
        {"commPort", integer(0, 65535)},
        {"mediaTimeoutMs", integer(0, 65535)},
        {"httpPorts", range(http)},
        {"rtspPorts", range(rtsp)},
        {"nonceLifetimeSec", integer(1, kNoLimit)},
        {"lockPeriodSec", integer(1, kNoLimit)},
        {"listenerCheckSec", integer(0, 86400)},
        {"logLevel", logLevel},
        {"logFile", text({}, "")},
        {"managementPort", integer(1, 65535, &services.management)},
        {"telmiUserPort", integer(0, 65535, &services.user)},
        {"serviceUser", text(validServiceUser, kServiceUserRule)},
        {"allowedDeviceNetworks", with(checkNetworks)},
        {"users", with(checkHA1s)},
        {"managers", with(checkHA1s)},
    };
    for (const std::string& key : root.getMemberNames()) {
        const auto check = checks.find(key);
        if (check != checks.end()) {
            check->second(root[key], key);
            continue;
        }
        std::string text = "unknown key";
        for (const auto& [known, unused] : checks) {
            if (editDistance(key, known) <= 2) {
                text += " (did you mean \"" + known + "\"?)";
                break;
            }
        }
        report(problems, key, text);
    }
    checkPortLayout(http, rtsp, services, problems);
    return problems;
}

std::vector<std::string> settingsTextProblems(const std::string& text) {
    Json::Value root;
    std::string error;
    // As the store reads it: a file edited by hand may hold comments.
    if (gwapi::parseJson(text, root, error, {false})) {
        return settingsProblems(root);
    }
    // JsonCpp's report: "* Line L, Column C\n  What went wrong.\n", possibly more of them.
    int line = 0, column = 0;
    std::string what = error;
    if (std::sscanf(error.c_str(), "* Line %d, Column %d", &line, &column) == 2) {
        std::istringstream lines(error);
        std::getline(lines, what);
        std::getline(lines, what);
        what.erase(0, what.find_first_not_of(' '));
        what = "line " + std::to_string(line) + ", column " + std::to_string(column) + ": " + what;
    }
    return {"not valid JSON: " + what};
}

}  // namespace zqgw
