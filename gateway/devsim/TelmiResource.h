// One TELMI configuration resource of a simulated device: a JSON object kept in memory, read
// whole and changed field by field, every change checked before any is applied.
#pragma once

#include <json/json.h>

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace devsim {

// Empty when value is acceptable for the field; otherwise why not ("must be ...").
using FieldCheck = std::function<std::string(const Json::Value& value)>;

FieldCheck integerIn(int lowest, int highest);
FieldCheck oneOf(std::vector<std::string> choices);
FieldCheck ipv4Address();
FieldCheck hostName();
FieldCheck utcOffset();  // "UTC+08:00", "UTC-03:30"

class TelmiResource {
public:
    // A resource with no checks is read-only.
    TelmiResource(Json::Value initial, std::map<std::string, FieldCheck> checks);

    bool writable() const { return !checks_.empty(); }
    Json::Value read() const;
    // Applies the members of change, a JSON object naming some of the fields, when every one is
    // acceptable; otherwise changes nothing and returns what is wrong.
    std::string update(const Json::Value& change);

private:
    mutable std::mutex mutex_;
    Json::Value value_;
    const std::map<std::string, FieldCheck> checks_;
};

}  // namespace devsim
