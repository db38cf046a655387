#include "JsonText.h"

#include <memory>

namespace gwapi {

bool parseJson(const std::string& text, Json::Value& value, std::string& error) {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    return reader->parse(text.data(), text.data() + text.size(), &value, &error);
}

std::string compactJson(const Json::Value& value) {
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    return Json::writeString(writer, value);
}

}  // namespace gwapi
