#include "JsonText.h"

#include <memory>

namespace gwapi {
namespace {

std::string writeJson(const Json::Value& value, const char* indentation) {
    Json::StreamWriterBuilder writer;
    writer["indentation"] = indentation;
    return Json::writeString(writer, value);
}

}  // namespace

bool parseJson(const std::string& text, Json::Value& value, std::string& error, const JsonReading& reading) {
    Json::CharReaderBuilder builder;
    if (reading.strict) {
        Json::CharReaderBuilder::strictMode(&builder.settings_);
    }
    builder.settings_["stackLimit"] = reading.maxDepth;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    return reader->parse(text.data(), text.data() + text.size(), &value, &error);
}

std::string compactJson(const Json::Value& value) { return writeJson(value, ""); }

std::string indentedJson(const Json::Value& value) { return writeJson(value, "  "); }

}  // namespace gwapi
