#include "AuditLine.h"

#include "JsonText.h"

namespace gatewayd {
namespace {

// What an item of a batch was about, as its entry names it.
std::string subjectOf(const Json::Value& entry) {
    for (const char* member : {"userName", "deviceID", "portIndex", "userIndex"}) {
        if (entry[member].isString() && !entry[member].asString().empty()) {
            return entry[member].asString();
        }
    }
    return "?";
}

std::string outcomeOf(const Json::Value& body) {
    if (body["error"].isObject()) {
        return "refused, code " + std::to_string(body["error"]["code"].asInt()) + ": " +
               body["error"]["message"].asString();
    }
    std::string text = body["code"].isInt() ? "code " + std::to_string(body["code"].asInt()) : "done";
    if (body["cleared"].isInt()) {
        text += ", cleared " + std::to_string(body["cleared"].asInt());
    }
    if (body["results"].isArray()) {
        for (const auto& entry : body["results"]) {
            text += ", " + subjectOf(entry) + " code " + std::to_string(entry["code"].asInt());
        }
    }
    return text;
}

}  // namespace

std::string auditLine(const httplib::Request& req, const httplib::Response& res) {
    if (req.method == "GET" || req.method == "HEAD" || res.status == 401) {
        return "";
    }
    Json::Value body;
    std::string error;
    gwapi::parseJson(res.body, body, error);
    return "audit: admin from " + req.get_header_value("X-Real-IP") + ": " + req.method + " " + req.target + ": " +
           std::to_string(res.status) + ", " + outcomeOf(body);
}

}  // namespace gatewayd
