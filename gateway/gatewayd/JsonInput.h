// Reading management API input. Every reader refuses what does not fit, with an ApiError of
// status 400 naming the field, before anything is changed: nothing is truncated or coerced.
#pragma once

#include <httplib.h>
#include <json/json.h>

#include <cstddef>
#include <string>
#include <vector>

namespace gatewayd {

// Most items one batch request may carry.
constexpr size_t kMaxBatchItems = 1000;
// Deepest nesting of arrays and objects a body may have; no route needs more than three.
constexpr size_t kMaxJsonDepth = 16;

// The request body as a JSON object (strict: no comments, no duplicate keys, nothing after it,
// nested at most kMaxJsonDepth deep).
Json::Value parseObject(const std::string& body);

// A required member of type string, at most maxLength bytes.
std::string textMember(const Json::Value& object, const char* name, size_t maxLength);
// The same, or fallback when the member is absent.
std::string optionalTextMember(const Json::Value& object, const char* name, size_t maxLength,
                               const std::string& fallback);
// A required integer member within [low, high] (a number with a fraction is refused).
int intMember(const Json::Value& object, const char* name, int low, int high);
// A required array of 1 to kMaxBatchItems strings, each 1 to maxLength bytes.
std::vector<std::string> textArrayMember(const Json::Value& object, const char* name, size_t maxLength);
// A required array of 1 to kMaxBatchItems objects.
const Json::Value& objectArrayMember(const Json::Value& object, const char* name);

// A query parameter as a decimal integer within [low, high], or fallback when absent.
int queryInt(const httplib::Request& req, const char* name, int fallback, int low, int high);
// A query parameter of at most maxLength bytes, empty when absent.
std::string queryText(const httplib::Request& req, const char* name, size_t maxLength);

}  // namespace gatewayd
