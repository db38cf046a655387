// A client of the gateway's management API: HTTP Digest as the gateway's "admin", JSON bodies.
#pragma once

#include <httplib.h>
#include <json/json.h>

#include <ctime>
#include <string>

namespace gwapi {

// One answer of the management API, or why none came.
struct ApiAnswer {
    int status = 0;              // HTTP status; 0 when no answer came
    std::string body;            // as received
    Json::Value json;            // the body parsed; null when it is not JSON
    std::string transportError;  // why no answer came

    bool answered() const { return status != 0; }
    // The result code of a refusal ({"error": {"code"}}), 0 when the body names none.
    int errorCode() const;
    // Why the request was not done, in one sentence: unreachable API, refused admin password,
    // or the refusal's status, message and code.
    std::string refusal() const;
};

// The answer made of one HTTP reply: its status and body, the body parsed when it is JSON.
ApiAnswer replyAnswer(int status, const std::string& body);

class ManagementClient {
public:
    // url: "http://host:port" of the management API; readSeconds: how long one answer may take.
    ManagementClient(const std::string& url, const std::string& adminPassword, time_t readSeconds);

    ApiAnswer get(const std::string& path, const httplib::Params& query = {});
    // A null body sends an empty JSON object.
    ApiAnswer post(const std::string& path, const Json::Value& body = Json::Value());
    ApiAnswer put(const std::string& path, const Json::Value& body);
    ApiAnswer remove(const std::string& path, const httplib::Params& query = {});

private:
    httplib::Client client_;
};

// "http://host:port" with nothing after the port; false with a message otherwise.
bool checkManagementUrl(const std::string& url, std::string& error);

// text as one segment of a request path: every character but the unreserved ones escaped.
std::string pathSegment(const std::string& text);

}  // namespace gwapi
