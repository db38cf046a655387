#include "MediaStandIn.h"

#include <json/json.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "GatewayTestHome.h"
#include "ZQGatewayHome.h"
#include "ZQMediaFrame.h"

namespace gwtest {

MediaStandIn::MediaStandIn() {
    const std::string path = ZQ_Gateway_HomePath(ZQGateway::kMediaSocketPath);
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    ::unlink(path.c_str());
    fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 || ::listen(fd_, 16) != 0) {
        ::close(fd_);
        fd_ = -1;
        return;
    }
    thread_ = std::thread(&MediaStandIn::serve, this);
}

MediaStandIn::~MediaStandIn() {
    stopping_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
    if (fd_ >= 0) {
        ::close(fd_);
    }
}

void MediaStandIn::serve() {
    while (!stopping_) {
        pollfd p {fd_, POLLIN, 0};
        if (::poll(&p, 1, 50) <= 0) {
            continue;
        }
        int client = ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) {
            continue;
        }
        const std::string command = readMediaFrame(client);
        if (!command.empty()) {
            const std::string frame = ZQGateway::encodeMediaFrame(answer(command));
            ::send(client, frame.data(), frame.size(), MSG_NOSIGNAL);
        }
        ::close(client);
    }
}

std::string MediaStandIn::answer(const std::string& command) {
    Json::Value request, reply;
    Json::Reader().parse(command, request);
    const std::string method = request["method"].asString();
    const Json::Value& params = request["params"];
    if (method == "PutMediaPort") {
        reply["code"] = "0";
    } else if (method == "GetMediaPortStatus") {
        reply["data"]["listenStatus"] = Json::Value(Json::arrayValue);
        for (const Json::Value& index : params["devindexCodeList"]) {
            Json::Value status;
            status["deviceIndex"] = index.asString();
            status["rtspPort"] = 0;
            status["status"] = "success";
            reply["data"]["listenStatus"].append(status);
        }
    } else {
        reply["data"]["rsp"]["listenStatus"]["deviceIndex"] = "";
        reply["data"]["rsp"]["listenStatus"]["rtspPort"] = 0;
        reply["data"]["rsp"]["listenStatus"]["status"] = "success";
    }
    return Json::FastWriter().write(reply);
}

}  // namespace gwtest
