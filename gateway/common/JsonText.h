// JSON text in and out, the same way in every program of the reference gateway: strict parsing,
// compact output.
#pragma once

#include <json/json.h>

#include <string>

namespace gwapi {

// False with JsonCpp's message when text is not one strict JSON value.
bool parseJson(const std::string& text, Json::Value& value, std::string& error);
std::string compactJson(const Json::Value& value);

}  // namespace gwapi
