// The driver command interface and a media module behind it.
#include <json/json.h>

#include <cstring>
#include <regex>

#include "FakePlatform.h"

using fake::fakePlatform;

namespace fake {

namespace {

std::string compact(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

Json::Value listenStatus(const std::string& devIndex, unsigned short port, bool listening) {
    Json::Value status;
    status["deviceIndex"] = devIndex;
    status["rtspPort"] = port;
    status["status"] = listening ? "success" : "fail";
    return status;
}

}  // namespace

// Opens and closes RTSP listeners in the fake's listener table and reports them as it holds them.
MediaReply wellBehavedMedia(const std::string& command) {
    auto& platform = fakePlatform();
    std::lock_guard<std::recursive_mutex> lock(platform.mutex);
    Json::Value request;
    Json::Reader reader;
    if (!reader.parse(command, request)) {
        return {0, "{\"statusCode\":4,\"statusString\":\"Invalid JSON\"}", ""};
    }
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
        if (!std::regex_search(uri, match, std::regex("devIndex=([^&]*)&.*portNo=([0-9]+)"))) {
            answer["data"]["rsp"]["statusCode"] = 4;
            answer["data"]["rsp"]["statusString"] = "Invalid uri";
        } else {
            const std::string devIndex = match[1];
            const auto port = static_cast<unsigned short>(std::stoi(match[2]));
            platform.mediaListening[devIndex] = port;
            platform.listeners[port] = FakePlatform::kMediaPid;
            answer["data"]["rsp"]["listenStatus"] = listenStatus(devIndex, port, true);
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
    } else {
        answer["statusCode"] = 4;
        answer["statusString"] = "Unknown method";
    }
    return {0, compact(answer), ""};
}

}  // namespace fake

int DriverCif_InputCmdToMediaSyn(const char* cmd, int cmdLen, char** rsp, int* rspLen, std::string* errMsg,
                                 int reserved, int timeoutSec) {
    auto& platform = fakePlatform();
    std::lock_guard<std::recursive_mutex> lock(platform.mutex);
    std::string command(cmd, static_cast<size_t>(cmdLen));
    platform.mediaCommands.push_back({command, cmdLen, reserved, timeoutSec});
    Json::Value parsed;
    Json::Reader().parse(command, parsed);
    platform.record("media " + parsed["method"].asString());

    fake::MediaReply reply;
    if (!platform.mediaReplies.empty()) {
        reply = platform.mediaReplies.front();
        platform.mediaReplies.pop_front();
    } else if (platform.mediaHandler) {
        reply = platform.mediaHandler(command);
    } else {
        reply = fake::wellBehavedMedia(command);
    }
    if (reply.rc != 0) {
        *errMsg = reply.errMsg;
        return reply.rc;
    }
    char* buffer = new char[reply.body.size() + 1];
    std::memcpy(buffer, reply.body.c_str(), reply.body.size() + 1);
    platform.liveBuffers.insert(buffer);
    ++platform.buffersAllocated;
    *rsp = buffer;
    *rspLen = static_cast<int>(reply.body.size());
    return 0;
}

void DriverCif_FreeBuffer(char* buf) {
    auto& platform = fakePlatform();
    std::lock_guard<std::recursive_mutex> lock(platform.mutex);
    if (platform.liveBuffers.erase(buf) == 0) {
        platform.bufferErrors.push_back("free of a buffer that is not live");
        return;
    }
    ++platform.buffersFreed;
    delete[] buf;
}
