// JSON text in and out, the same way in every program of the reference gateway: strict parsing,
// compact output.
#pragma once

#include <json/json.h>

#include <string>

namespace gwapi {

struct JsonReading {
    // Strict: no comments, no duplicate keys, nothing after the value. Off only for files a
    // person may have edited by hand, read as JsonCpp reads them by default.
    bool strict = true;
    // Deepest nesting of arrays and objects; JsonCpp throws Json::Exception past it.
    int maxDepth = 1000;
};

// True when every string and member name in value is well-formed UTF-8, as JSON text must be
// (RFC 8259). JsonCpp reads any bytes, and lone surrogate escapes, into its strings, but writes
// malformed sequences back as U+FFFD: a reader that took them would act on one text and answer
// with another.
bool isUtf8(const Json::Value& value);

// False with JsonCpp's message (or the UTF-8 rule's) when text is not one JSON value.
bool parseJson(const std::string& text, Json::Value& value, std::string& error, const JsonReading& reading = {});
std::string compactJson(const Json::Value& value);
// Two spaces an indentation level, for files a person may read.
std::string indentedJson(const Json::Value& value);

// A member of type int or uint (JsonCpp's isInt() also takes 2.0).
inline bool isJsonInteger(const Json::Value& value) {
    return value.type() == Json::intValue || value.type() == Json::uintValue;
}

}  // namespace gwapi
