#include "TelmiResource.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>

namespace devsim {

FieldCheck integerIn(int lowest, int highest) {
    return [lowest, highest](const Json::Value& value) -> std::string {
        if (value.isInt() && value.asInt() >= lowest && value.asInt() <= highest) {
            return "";
        }
        return "must be an integer from " + std::to_string(lowest) + " to " + std::to_string(highest);
    };
}

FieldCheck oneOf(std::vector<std::string> choices) {
    return [choices = std::move(choices)](const Json::Value& value) -> std::string {
        if (value.isString() && std::find(choices.begin(), choices.end(), value.asString()) != choices.end()) {
            return "";
        }
        std::string list;
        for (const auto& choice : choices) {
            list += (list.empty() ? "\"" : ", \"") + choice + "\"";
        }
        return "must be one of " + list;
    };
}

FieldCheck ipv4Address() {
    return [](const Json::Value& value) -> std::string {
        in_addr address {};
        if (value.isString() && ::inet_pton(AF_INET, value.asCString(), &address) == 1) {
            return "";
        }
        return "must be a dotted IPv4 address such as \"192.168.1.64\"";
    };
}

FieldCheck hostName() {
    return [](const Json::Value& value) -> std::string {
        const auto hostCharacter = [](unsigned char c) { return std::isalnum(c) || c == '.' || c == '-'; };
        if (value.isString() && !value.asString().empty() && value.asString().size() <= 64) {
            const std::string text = value.asString();
            if (std::all_of(text.begin(), text.end(), hostCharacter)) {
                return "";
            }
        }
        return "must be a host name or address of 1 to 64 letters, digits, dots and hyphens";
    };
}

FieldCheck utcOffset() {
    return [](const Json::Value& value) -> std::string {
        const std::string text = value.isString() ? value.asString() : "";
        const auto digits = [&text](size_t at) {
            return std::isdigit(static_cast<unsigned char>(text[at])) &&
                   std::isdigit(static_cast<unsigned char>(text[at + 1]));
        };
        if (text.size() == 9 && text.compare(0, 3, "UTC") == 0 && (text[3] == '+' || text[3] == '-') && digits(4) &&
            text[6] == ':' && digits(7)) {
            const int hours = std::stoi(text.substr(4, 2));
            const int minutes = std::stoi(text.substr(7, 2));
            if (hours <= 14 && minutes < 60 && (hours < 14 || minutes == 0)) {
                return "";
            }
        }
        return "must be an offset from UTC such as \"UTC+08:00\" (at most 14 hours)";
    };
}

TelmiResource::TelmiResource(Json::Value initial, std::map<std::string, FieldCheck> checks)
    : value_(std::move(initial)), checks_(std::move(checks)) {}

Json::Value TelmiResource::read() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return value_;
}

std::string TelmiResource::update(const Json::Value& change) {
    if (!change.isObject() || change.empty()) {
        return "the body must be a JSON object with at least one field";
    }
    for (const auto& name : change.getMemberNames()) {
        const auto check = checks_.find(name);
        if (check == checks_.end()) {
            std::string known;
            for (const auto& field : checks_) {
                known += (known.empty() ? "" : ", ") + field.first;
            }
            return "unknown field \"" + name + "\" (fields: " + known + ")";
        }
        const std::string problem = check->second(change[name]);
        if (!problem.empty()) {
            return "\"" + name + "\" " + problem;
        }
    }
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& name : change.getMemberNames()) {
        value_[name] = change[name];
    }
    return "";
}

}  // namespace devsim
