// JSON text in and out, the same way in every program of the reference gateway: strict parsing,
// compact output.
#pragma once

#include <json/json.h>

#include <string>

namespace gwapi {

// True when every string and member name in value is well-formed UTF-8, as JSON text must be
// (RFC 8259). JsonCpp reads any bytes, and lone surrogate escapes, into its strings, but writes
// malformed sequences back as U+FFFD: a reader that took them would act on one text and answer
// with another.
bool isUtf8(const Json::Value& value);

// False with JsonCpp's message (or the UTF-8 rule's) when text is not one strict JSON value.
bool parseJson(const std::string& text, Json::Value& value, std::string& error);
std::string compactJson(const Json::Value& value);

}  // namespace gwapi
