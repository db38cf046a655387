#include "ManagementClient.h"

#include <regex>

#include "JsonText.h"
#include "ResultMeaning.h"

namespace gwapi {

namespace {

constexpr time_t kConnectSeconds = 5;

ApiAnswer toAnswer(const httplib::Result& result) {
    if (!result) {
        ApiAnswer answer;
        answer.transportError = httplib::to_string(result.error());
        return answer;
    }
    return replyAnswer(result->status, result->body);
}

const Json::Value& errorObject(const Json::Value& json) {
    static const Json::Value kNone;
    return json.isObject() && json["error"].isObject() ? json["error"] : kNone;
}

}  // namespace

ApiAnswer replyAnswer(int status, const std::string& body) {
    ApiAnswer answer;
    answer.status = status;
    answer.body = body;
    std::string ignored;
    if (!parseJson(answer.body, answer.json, ignored)) {
        answer.json = Json::Value();
    }
    return answer;
}

int ApiAnswer::errorCode() const {
    const Json::Value& code = errorObject(json)["code"];
    return code.isInt() ? code.asInt() : 0;
}

std::string ApiAnswer::refusal() const {
    if (!answered()) {
        return "the management API cannot be reached (" + transportError + " failed)";
    }
    if (status == 401) {
        return "HTTP 401: the admin password was not accepted";
    }
    std::string text = "HTTP " + std::to_string(status);
    const Json::Value& error = errorObject(json);
    if (error.isNull()) {
        return text;
    }
    const int code = errorCode();
    const Json::Value& message = error["message"];
    // The service's own sentence names the item; the shared table covers a bare code.
    text += ": " + (message.isString() && !message.asString().empty() ? message.asString()
                                                                      : std::string(meaningOf(code).message));
    return code == 0 ? text : text + " (code " + std::to_string(code) + ")";
}

ManagementClient::ManagementClient(const std::string& url, const std::string& adminPassword, time_t readSeconds)
    : client_(url.back() == '/' ? url.substr(0, url.size() - 1) : url) {
    client_.set_digest_auth("admin", adminPassword);
    client_.set_connection_timeout(kConnectSeconds);
    client_.set_read_timeout(readSeconds);
}

ApiAnswer ManagementClient::get(const std::string& path, const httplib::Params& query) {
    return toAnswer(client_.Get(path, query, httplib::Headers()));
}

ApiAnswer ManagementClient::post(const std::string& path, const Json::Value& body) {
    // Always a body: cpp-httplib's Digest retry of a bodiless POST repeats its Content-Length
    // header, which nginx rightly refuses.
    const Json::Value sent = body.isNull() ? Json::Value(Json::objectValue) : body;
    return toAnswer(client_.Post(path, compactJson(sent), "application/json"));
}

ApiAnswer ManagementClient::put(const std::string& path, const Json::Value& body) {
    return toAnswer(client_.Put(path, compactJson(body), "application/json"));
}

ApiAnswer ManagementClient::remove(const std::string& path, const httplib::Params& query) {
    return toAnswer(client_.Delete(httplib::append_query_params(path, query)));
}

bool checkManagementUrl(const std::string& url, std::string& error) {
    static const std::regex kForm(R"(https?://[A-Za-z0-9.\-]+(:[0-9]{1,5})?/?)");
    if (!std::regex_match(url, kForm)) {
        error = "the management URL must look like http://127.0.0.1:8600 (got \"" + url + "\")";
        return false;
    }
    return true;
}

std::string pathSegment(const std::string& text) { return httplib::detail::encode_query_param(text); }

}  // namespace gwapi
