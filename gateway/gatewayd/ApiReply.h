// Answers of the management API: JSON bodies, the error object and per-item result entries.
#pragma once

#include <httplib.h>
#include <json/json.h>

#include <string>

#include "ResultMeaning.h"

namespace gatewayd {

void replyJson(httplib::Response& res, int httpStatus, const Json::Value& body);
// {"error": {"code": code, "message": message}}
void replyError(httplib::Response& res, int httpStatus, int code, const std::string& message);
// {"code": code, "message": <what the code means in the job>}, the start of one batch item's entry.
Json::Value resultEntry(int code, gwapi::Job job = gwapi::Job::any);

}  // namespace gatewayd
