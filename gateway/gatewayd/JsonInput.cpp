#include "JsonInput.h"

#include "ApiError.h"
#include "JsonText.h"

namespace gatewayd {
namespace {

std::string quoted(const char* name) { return std::string("\"") + name + "\""; }

void checkText(const std::string& text, const std::string& what, size_t maxLength) {
    if (text.size() > maxLength) {
        throw ApiError::badInput(what + " is longer than " + std::to_string(maxLength) + " characters");
    }
    if (text.find('\0') != std::string::npos) {
        throw ApiError::badInput(what + " contains a NUL character");
    }
}

const Json::Value& arrayMember(const Json::Value& object, const char* name) {
    const Json::Value& array = object[name];
    if (!array.isArray()) {
        throw ApiError::badInput(quoted(name) + " must be an array");
    }
    if (array.empty() || array.size() > kMaxBatchItems) {
        throw ApiError::badInput(quoted(name) + " must hold 1 to " + std::to_string(kMaxBatchItems) + " items");
    }
    return array;
}

}  // namespace

Json::Value parseObject(const std::string& body) {
    Json::Value root;
    std::string errors;
    bool parsed = false;
    try {
        parsed = gwapi::parseJson(body, root, errors, {true, static_cast<int>(kMaxJsonDepth)});
    } catch (const Json::Exception&) {
        // JsonCpp throws rather than report a body nested past the stack limit.
        throw ApiError::badInput("the body is nested deeper than " + std::to_string(kMaxJsonDepth) + " levels");
    }
    if (!parsed) {
        throw ApiError::badInput("the body is not valid JSON: " + errors);
    }
    if (!gwapi::isUtf8(root)) {
        throw ApiError::badInput("the body is not UTF-8 text");
    }
    if (!root.isObject()) {
        throw ApiError::badInput("the body must be a JSON object");
    }
    return root;
}

std::string textMember(const Json::Value& object, const char* name, size_t maxLength) {
    if (!object.isMember(name)) {
        throw ApiError::badInput(quoted(name) + " is missing");
    }
    return optionalTextMember(object, name, maxLength, "");
}

std::string optionalTextMember(const Json::Value& object, const char* name, size_t maxLength,
                               const std::string& fallback) {
    if (!object.isMember(name)) {
        return fallback;
    }
    const Json::Value& value = object[name];
    if (!value.isString()) {
        throw ApiError::badInput(quoted(name) + " must be a string");
    }
    std::string text = value.asString();
    checkText(text, quoted(name), maxLength);
    return text;
}

int intMember(const Json::Value& object, const char* name, int low, int high) {
    if (!object.isMember(name)) {
        throw ApiError::badInput(quoted(name) + " is missing");
    }
    const Json::Value& value = object[name];
    if (!gwapi::isJsonInteger(value)) {
        throw ApiError::badInput(quoted(name) + " must be an integer");
    }
    if (!value.isInt() || value.asInt() < low || value.asInt() > high) {
        throw ApiError::badInput(quoted(name) + " must be between " + std::to_string(low) + " and " +
                                 std::to_string(high));
    }
    return value.asInt();
}

std::vector<std::string> textArrayMember(const Json::Value& object, const char* name, size_t maxLength) {
    std::vector<std::string> texts;
    for (const Json::Value& item : arrayMember(object, name)) {
        const std::string what = quoted(name) + " item " + std::to_string(texts.size());
        if (!item.isString()) {
            throw ApiError::badInput(what + " must be a string");
        }
        checkText(item.asString(), what, maxLength);
        texts.push_back(item.asString());
    }
    return texts;
}

const Json::Value& objectArrayMember(const Json::Value& object, const char* name) {
    const Json::Value& array = arrayMember(object, name);
    for (Json::ArrayIndex i = 0; i < array.size(); ++i) {
        if (!array[i].isObject()) {
            throw ApiError::badInput(quoted(name) + " item " + std::to_string(i) + " must be an object");
        }
    }
    return array;
}

int queryInt(const httplib::Request& req, const char* name, int fallback, int low, int high) {
    if (!req.has_param(name)) {
        return fallback;
    }
    const std::string text = req.get_param_value(name);
    const std::string what = std::string("the query parameter ") + name;
    if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != std::string::npos) {
        throw ApiError::badInput(what + " must be a decimal number");
    }
    const int value = std::stoi(text);
    if (value < low || value > high) {
        throw ApiError::badInput(what + " must be between " + std::to_string(low) + " and " + std::to_string(high));
    }
    return value;
}

std::string queryText(const httplib::Request& req, const char* name, size_t maxLength) {
    const std::string text = req.get_param_value(name);
    checkText(text, std::string("the query parameter ") + name, maxLength);
    return text;
}

}  // namespace gatewayd
