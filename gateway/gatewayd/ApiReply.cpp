#include "ApiReply.h"

#include "JsonText.h"
#include "ResultMeaning.h"

namespace gatewayd {

void replyJson(httplib::Response& res, int httpStatus, const Json::Value& body) {
    res.status = httpStatus;
    res.set_content(gwapi::compactJson(body) + "\n", "application/json");
}

void replyError(httplib::Response& res, int httpStatus, int code, const std::string& message) {
    Json::Value body;
    body["error"]["code"] = code;
    body["error"]["message"] = message;
    replyJson(res, httpStatus, body);
}

Json::Value resultEntry(int code, gwapi::Job job) {
    Json::Value entry;
    entry["code"] = code;
    entry["message"] = gwapi::meaningOf(code, job).message;
    return entry;
}

}  // namespace gatewayd
