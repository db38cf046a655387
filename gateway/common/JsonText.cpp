#include "JsonText.h"

#include <iconv.h>

#include <cerrno>
#include <memory>

namespace gwapi {
namespace {

// Decoding into UTF-32 stops at the first malformed, overlong, surrogate or cut-off sequence and
// at code points past U+10FFFF (which glibc's UTF-8 to UTF-8 conversion lets through).
bool isUtf8(const std::string& text) {
    const iconv_t converter = ::iconv_open("UTF-32LE", "UTF-8");
    if (converter == reinterpret_cast<iconv_t>(-1)) {
        return false;
    }
    char* in = const_cast<char*>(text.data());
    size_t inLeft = text.size();
    bool valid = true;
    while (inLeft > 0 && valid) {
        char chunk[4096];
        char* out = chunk;
        size_t outLeft = sizeof(chunk);
        valid = ::iconv(converter, &in, &inLeft, &out, &outLeft) != static_cast<size_t>(-1) || errno == E2BIG;
    }
    ::iconv_close(converter);
    return valid;
}

std::string writeJson(const Json::Value& value, const char* indentation) {
    Json::StreamWriterBuilder writer;
    writer["indentation"] = indentation;
    return Json::writeString(writer, value);
}

}  // namespace

bool isUtf8(const Json::Value& value) {
    if (value.isString()) {
        return isUtf8(value.asString());
    }
    if (value.isObject()) {
        for (auto member = value.begin(); member != value.end(); ++member) {
            if (!isUtf8(member.name()) || !isUtf8(*member)) {
                return false;
            }
        }
    }
    if (value.isArray()) {
        for (const Json::Value& item : value) {
            if (!isUtf8(item)) {
                return false;
            }
        }
    }
    return true;
}

bool parseJson(const std::string& text, Json::Value& value, std::string& error, const JsonReading& reading) {
    Json::CharReaderBuilder builder;
    if (reading.strict) {
        Json::CharReaderBuilder::strictMode(&builder.settings_);
    }
    builder.settings_["stackLimit"] = reading.maxDepth;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    if (!reader->parse(text.data(), text.data() + text.size(), &value, &error)) {
        return false;
    }
    if (!isUtf8(value)) {
        error = "a string is not UTF-8 text";
        return false;
    }
    return true;
}

std::string compactJson(const Json::Value& value) { return writeJson(value, ""); }

std::string indentedJson(const Json::Value& value) { return writeJson(value, "  "); }

}  // namespace gwapi
