// A simulated device's TELMI HTTP interface on 127.0.0.1:httpPort, served on its own threads.
// Every answer carries the header X-Device-ID with the device's access ID.
#pragma once

#include <httplib.h>

#include <string>
#include <thread>

#include "DeviceResources.h"
#include "DeviceSpec.h"

namespace devsim {

class TelmiServer {
public:
    // Each kept-alive connection holds one of the threads: a proxy keeping many connections to
    // the device needs as many.
    TelmiServer(const DeviceSpec& device, size_t threads);
    ~TelmiServer();
    TelmiServer(const TelmiServer&) = delete;
    TelmiServer& operator=(const TelmiServer&) = delete;

    // Binds the port and starts serving; false with a message when the port cannot be had.
    bool start(std::string& error);
    void stop();

private:
    void handle(const httplib::Request& request, httplib::Response& response);

    const DeviceSpec device_;
    DeviceResources resources_;
    httplib::Server server_;
    std::thread thread_;
};

}  // namespace devsim
