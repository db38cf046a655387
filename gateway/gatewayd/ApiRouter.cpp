#include "ApiRouter.h"

namespace gatewayd {

void ApiRouter::remember(const char* method, const std::string& pattern) {
    routes_.emplace_back(method, std::regex(pattern));
}

void ApiRouter::get(const std::string& pattern, const httplib::Server::Handler& handler) {
    remember("GET", pattern);
    server_.Get(pattern, handler);
}

void ApiRouter::post(const std::string& pattern, const httplib::Server::Handler& handler) {
    remember("POST", pattern);
    server_.Post(pattern, handler);
}

void ApiRouter::put(const std::string& pattern, const httplib::Server::Handler& handler) {
    remember("PUT", pattern);
    server_.Put(pattern, handler);
}

void ApiRouter::del(const std::string& pattern, const httplib::Server::Handler& handler) {
    remember("DELETE", pattern);
    server_.Delete(pattern, handler);
}

std::string ApiRouter::allowedMethods(const std::string& path) const {
    std::string methods;
    for (const auto& [method, pattern] : routes_) {
        if (std::regex_match(path, pattern) && methods.find(method) == std::string::npos) {
            methods += (methods.empty() ? "" : ", ") + method;
        }
    }
    return methods;
}

}  // namespace gatewayd
