// The driver command interface and a media module behind it.
#include <json/json.h>

#include <cstring>
#include <regex>

#include "FakePlatform.h"
#include "JsonText.h"

using fake::fakePlatform;
using fake::lockPlatform;

namespace fake {

namespace {

Json::Value listenStatus(const std::string& devIndex, unsigned short port, bool listening) {
    Json::Value status;
    status["deviceIndex"] = devIndex;
    status["rtspPort"] = port;
    status["status"] = listening ? "success" : "fail";
    return status;
}

// Opens and closes RTSP listeners in the fake's listener table and reports them as it holds them.
std::string wellBehavedAnswer(const Json::Value& request) {
    auto& platform = fakePlatform();
    const std::string method = request["method"].asString();
    const Json::Value& params = request["params"];
    Json::Value answer(Json::objectValue);
    if (method == "PutMediaPort") {
        for (const auto& device : params["devices"]) {
            const std::string devIndex = device["devIndex"].asString();
            const int port = device["rtspPort"].asInt();
            if (device["rtspPortBind"].asBool()) {
                platform.mediaListening[devIndex] = static_cast<unsigned short>(port);
                platform.listeners[port] = FakePlatform::kMediaPid;
            } else {
                platform.mediaListening.erase(devIndex);
                platform.listeners.erase(port);
            }
        }
        answer["code"] = "0";
    } else if (method == "gatewayProtocol") {
        std::smatch match;
        const std::string uri = params["uri"].asString();
        if (std::regex_search(uri, match, std::regex("devIndex=([^&]*)&.*portNo=([0-9]+)"))) {
            const auto port = static_cast<unsigned short>(std::stoi(match[2]));
            platform.mediaListening[match[1]] = port;
            platform.listeners[port] = FakePlatform::kMediaPid;
            answer["data"]["rsp"]["listenStatus"] = listenStatus(match[1], port, true);
        }
    } else if (method == "GetMediaPortStatus") {
        answer["data"]["listenStatus"] = Json::Value(Json::arrayValue);
        for (const auto& devIndex : params["devindexCodeList"]) {
            auto it = platform.mediaListening.find(devIndex.asString());
            if (it != platform.mediaListening.end()) {
                auto holder = platform.listeners.find(it->second);
                bool listening = holder != platform.listeners.end() && holder->second == FakePlatform::kMediaPid;
                answer["data"]["listenStatus"].append(listenStatus(it->first, it->second, listening));
            }
        }
    }
    return gwapi::compactJson(answer);
}

}  // namespace

}  // namespace fake

int DriverCif_InputCmdToMediaSyn(const char* cmd, int cmdLen, char** rsp, int* rspLen, std::string* errMsg,
                                 int reserved, int timeoutSec) {
    auto& platform = fakePlatform();
    if (auto before = fake::locked(platform.beforeMedia)) {
        before();
    }
    auto lock = lockPlatform();
    std::string command(cmd, static_cast<size_t>(cmdLen));
    platform.mediaCommands.push_back({command, reserved, timeoutSec});
    Json::Value request;
    Json::Reader().parse(command, request);
    platform.call("media " + request["method"].asString());

    fake::MediaReply reply {0, "", ""};
    if (!platform.mediaReplies.empty()) {
        reply = platform.mediaReplies.front();
        platform.mediaReplies.pop_front();
    } else {
        reply.body = fake::wellBehavedAnswer(request);
    }
    if (reply.rc != 0) {
        *errMsg = reply.errMsg;
        return reply.rc;
    }
    // Exactly the answer's bytes, no NUL after them: the library must go by the length.
    char* buffer = new char[reply.body.size()];
    std::memcpy(buffer, reply.body.data(), reply.body.size());
    platform.liveBuffers.insert(buffer);
    ++platform.buffersAllocated;
    *rsp = buffer;
    *rspLen = static_cast<int>(reply.body.size());
    return 0;
}

void DriverCif_FreeBuffer(char* buf) {
    auto& platform = fakePlatform();
    auto lock = lockPlatform();
    if (platform.liveBuffers.erase(buf) == 0) {
        ++platform.badFrees;
        return;
    }
    ++platform.buffersFreed;
    delete[] buf;
}
