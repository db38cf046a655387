// Registers the management API's routes on its server and remembers them, so that a path some
// route serves with other methods is answered 405 with Allow rather than 404.
#pragma once

#include <httplib.h>

#include <regex>
#include <string>
#include <vector>

namespace gatewayd {

class ApiRouter {
public:
    explicit ApiRouter(httplib::Server& server) : server_(server) {}

    void get(const std::string& pattern, const httplib::Server::Handler& handler);
    void post(const std::string& pattern, const httplib::Server::Handler& handler);
    void put(const std::string& pattern, const httplib::Server::Handler& handler);
    void del(const std::string& pattern, const httplib::Server::Handler& handler);

    // "GET, POST" for the methods some route takes on this path; empty when none does.
    std::string allowedMethods(const std::string& path) const;

private:
    void remember(const char* method, const std::string& pattern);

    httplib::Server& server_;
    std::vector<std::pair<std::string, std::regex>> routes_;
};

}  // namespace gatewayd
