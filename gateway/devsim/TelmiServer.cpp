#include "TelmiServer.h"

#include <algorithm>

#include "DevsimLog.h"
#include "JsonText.h"
#include "OwnedPort.h"

namespace devsim {

namespace {

constexpr size_t kMaxBody = 64 * 1024;
constexpr size_t kKeepAliveRequests = 1000;

const char* statusText(int status) {
    switch (status) {
        case 400: return "Invalid Content";
        case 404: return "Not Found";
        case 405: return "Method Not Allowed";
        case 413: return "Payload Too Large";
        default: return "Error";
    }
}

void answer(httplib::Response& response, int status, const Json::Value& body) {
    response.status = status;
    response.set_content(gwapi::compactJson(body) + "\n", "application/json");
}

void refuse(httplib::Response& response, int status, const std::string& message) {
    Json::Value body;
    body["statusCode"] = status;
    body["statusString"] = statusText(status);
    body["errorMsg"] = message;
    answer(response, status, body);
}

}  // namespace

TelmiServer::TelmiServer(const DeviceSpec& device, size_t threads)
    : device_(device), resources_(makeDeviceResources(device)) {
    server_.new_task_queue = [threads] { return new httplib::ThreadPool(threads); };
    server_.set_payload_max_length(kMaxBody);
    server_.set_keep_alive_max_count(kKeepAliveRequests);
    // An answer is written as head then body: on a kept connection the body would otherwise
    // wait for the client's delayed acknowledgement.
    server_.set_tcp_nodelay(true);
    const auto handler = [this](const httplib::Request& request, httplib::Response& response) {
        handle(request, response);
    };
    server_.Get(".*", handler);
    server_.Put(".*", handler);
    server_.Post(".*", handler);
    server_.Delete(".*", handler);
    server_.Patch(".*", handler);
    // Answers the server library gives by itself (oversized or malformed requests) say who
    // answered too.
    server_.set_error_handler([this](const httplib::Request&, httplib::Response& response) {
        if (!response.has_header("X-Device-ID")) {
            response.set_header("X-Device-ID", device_.deviceID);
        }
        if (response.body.empty()) {
            refuse(response, response.status, "the request cannot be served");
        }
    });
}

TelmiServer::~TelmiServer() { stop(); }

bool TelmiServer::start(std::string& error) {
    if (!gwio::bindOwnedPort(server_, "127.0.0.1", device_.httpPort)) {
        error = "device " + device_.deviceID + ": TELMI port " + std::to_string(device_.httpPort) +
                " cannot be listened on (in use?)";
        return false;
    }
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    // A stop that came before the loop runs would be missed and the join would never return.
    while (!server_.is_running()) {
        std::this_thread::yield();
    }
    return true;
}

void TelmiServer::stop() {
    server_.stop();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void TelmiServer::handle(const httplib::Request& request, httplib::Response& response) {
    response.set_header("X-Device-ID", device_.deviceID);
    const auto found = resources_.find(request.path);
    if (found == resources_.end()) {
        refuse(response, 404, "no TELMI resource at " + request.path);
        return;
    }
    TelmiResource& resource = *found->second;
    if (request.method == "GET") {
        answer(response, 200, resource.read());
        return;
    }
    if (request.method != "PUT" || !resource.writable()) {
        response.set_header("Allow", resource.writable() ? "GET, PUT" : "GET");
        refuse(response, 405, request.path + (resource.writable() ? " accepts GET and PUT" : " is read-only"));
        return;
    }
    Json::Value change;
    std::string problem;
    if (!gwapi::parseJson(request.body, change, problem)) {
        std::replace(problem.begin(), problem.end(), '\n', ' ');
        problem.erase(problem.find_last_not_of(' ') + 1);
        refuse(response, 400, "the body is not valid JSON: " + problem);
        return;
    }
    problem = resource.update(change);
    if (!problem.empty()) {
        refuse(response, 400, problem);
        return;
    }
    log(LogLevel::info, "device %s: %s changed", device_.deviceID.c_str(), request.path.c_str());
    answer(response, 200, resource.read());
}

}  // namespace devsim
