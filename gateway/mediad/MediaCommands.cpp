#include "MediaCommands.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <set>

#include "DeviceDirectory.h"
#include "JsonText.h"
#include "MediadLog.h"
#include "PortNumber.h"

namespace mediad {

namespace {

constexpr int kModuleType = 10;
constexpr size_t kMaxDeviceIndex = 36;
constexpr const char* kRefreshPath = "/TELMI/ContentMgmt/DeviceMgmt/refreshDevicePort";

Json::Value refusalValue(int code, const std::string& text) {
    Json::Value refusal(Json::objectValue);
    refusal["statusCode"] = code;
    refusal["statusString"] = text;
    return refusal;
}

// The member key of object; null when object is not an object or lacks it (JsonCpp's own
// accessors assert on non-objects).
const Json::Value* member(const Json::Value& object, const char* key) {
    return object.isObject() ? object.find(key, key + std::strlen(key)) : nullptr;
}

bool isInteger(const Json::Value* value) { return value != nullptr && gwapi::isJsonInteger(*value); }

bool validDeviceIndex(const std::string& text) { return !text.empty() && text.size() <= kMaxDeviceIndex; }

// The device index and port of a refresh request uri; 0, or the refusal code with error set.
int parseRefreshUri(const std::string& uri, std::string& deviceIndex, uint16_t& port, std::string& error) {
    const size_t question = uri.find('?');
    if (uri.compare(0, question, kRefreshPath) != 0) {
        error = "Unknown request uri";
        return refusedUnknown;
    }
    bool havePort = false;
    const std::string query = question == std::string::npos ? std::string() : uri.substr(question + 1);
    for (size_t start = 0; start <= query.size();) {
        const size_t end = std::min(query.find('&', start), query.size());
        const std::string pair = query.substr(start, end - start);
        const size_t equals = pair.find('=');
        const std::string key = pair.substr(0, equals);
        const std::string value = equals == std::string::npos ? std::string() : pair.substr(equals + 1);
        if (key == "devIndex") {
            deviceIndex = value;
        } else if (key == "portNo") {
            havePort = gwio::parsePortNumber(value, port);
        } else if (key == "portType" && value != "rtsp") {
            error = "Only portType rtsp can be refreshed";
            return refusedMalformed;
        }
        start = end + 1;
    }
    if (!validDeviceIndex(deviceIndex)) {
        error = "devIndex must be 1 to 36 characters";
        return refusedMalformed;
    }
    if (!havePort) {
        error = "portNo must be a port number from 1 to 65535";
        return refusedMalformed;
    }
    return 0;
}

}  // namespace

std::string MediaCommands::refusal(int code, const std::string& text) {
    return gwapi::compactJson(refusalValue(code, text));
}

std::string MediaCommands::answer(const std::string& command) {
    try {
        Json::Value request;
        std::string parseError;
        if (!gwapi::parseJson(command, request, parseError)) {
            std::replace(parseError.begin(), parseError.end(), '\n', ' ');
            MEDIAD_LOG(gwlog::kWarning, "command refused: not JSON: %s", parseError.c_str());
            return refusal(refusedMalformed, "Invalid JSON: " + parseError);
        }
        if (!gwapi::isUtf8(request)) {
            MEDIAD_LOG(gwlog::kWarning, "command refused: not UTF-8 text");
            return refusal(refusedMalformed, "Invalid JSON: a string is not UTF-8 text");
        }
        const Json::Value* method = member(request, "method");
        const Json::Value* moduleType = member(request, "moduleType");
        const Json::Value* params = member(request, "params");
        if (method == nullptr || !method->isString() || !isInteger(moduleType) ||
            moduleType->asInt64() != kModuleType || params == nullptr || !params->isObject()) {
            MEDIAD_LOG(gwlog::kWarning, "command refused: bad envelope");
            return refusal(refusedMalformed,
                           "A command needs \"method\" (string), \"moduleType\" 10 and \"params\" (object)");
        }
        const std::string name = method->asString();
        MEDIAD_LOG(gwlog::kDetail, "command %s", name.c_str());
        if (name == "PutMediaPort") {
            return gwapi::compactJson(putMediaPort(*params));
        }
        if (name == "gatewayProtocol") {
            return gwapi::compactJson(refreshDevicePort(*params));
        }
        if (name == "GetMediaPortStatus") {
            return gwapi::compactJson(getMediaPortStatus(*params));
        }
        if (name == "ListMediaPorts") {
            return gwapi::compactJson(listMediaPorts());
        }
        MEDIAD_LOG(gwlog::kWarning, "command refused: unknown method %s", name.c_str());
        return refusal(refusedMethod, "Unknown method " + name);
    } catch (const std::exception& error) {
        // JsonCpp asserts by throwing; no command may end the daemon.
        MEDIAD_LOG(gwlog::kWarning, "command refused: %s", error.what());
        return refusal(refusedMalformed, std::string("Malformed command: ") + error.what());
    }
}

// {"code":"0"} when every device was done, {"code":"1"} when any was not (each logged).
Json::Value MediaCommands::putMediaPort(const Json::Value& params) {
    const Json::Value* devices = member(params, "devices");
    if (devices == nullptr || !devices->isArray()) {
        MEDIAD_LOG(gwlog::kWarning, "PutMediaPort refused: no devices array");
        return refusalValue(refusedMalformed, "params.devices must be an array");
    }
    int failed = 0;
    for (const Json::Value& device : *devices) {
        const Json::Value* devIndex = member(device, "devIndex");
        const Json::Value* bind = member(device, "rtspPortBind");
        const Json::Value* port = member(device, "rtspPort");
        if (devIndex == nullptr || !devIndex->isString() || !validDeviceIndex(devIndex->asString()) ||
            bind == nullptr || !bind->isBool() || !isInteger(port) || port->asInt64() < 0 || port->asInt64() > 65535) {
            MEDIAD_LOG(gwlog::kWarning, "PutMediaPort: malformed device entry %s", gwapi::compactJson(device).c_str());
            ++failed;
            continue;
        }
        const std::string deviceIndex = devIndex->asString();
        if (bind->asBool()) {
            failed += openForDevice(deviceIndex, static_cast<uint16_t>(port->asUInt())) ? 0 : 1;
        } else {
            listeners_.close(deviceIndex);
            directory_.forget(deviceIndex);
        }
    }
    Json::Value answer(Json::objectValue);
    answer["code"] = failed == 0 ? "0" : "1";
    return answer;
}

bool MediaCommands::openForDevice(const std::string& deviceIndex, uint16_t port) {
    const DeviceRoute& route = directory_.reread(deviceIndex);
    if (route.lookup != DeviceLookup::found) {
        MEDIAD_LOG(gwlog::kWarning, "device %s cannot listen: %s", deviceIndex.c_str(), route.error.c_str());
        return false;
    }
    std::string error;
    return listeners_.open(deviceIndex, port, error) == ListenOutcome::listening;
}

Json::Value MediaCommands::refreshDevicePort(const Json::Value& params) {
    Json::Value answer(Json::objectValue);
    Json::Value& rsp = answer["data"]["rsp"];
    const Json::Value* method = member(params, "method");
    const Json::Value* uri = member(params, "uri");
    if (method == nullptr || !method->isString() || method->asString() != "PUT") {
        rsp = refusalValue(refusedMethod, "Only PUT requests are served");
        return answer;
    }
    std::string deviceIndex, error;
    uint16_t port = 0;
    int uriCode = refusedMalformed;
    error = "uri must be a string";
    if (uri != nullptr && uri->isString()) {
        uriCode = parseRefreshUri(uri->asString(), deviceIndex, port, error);
    }
    if (uriCode != 0) {
        MEDIAD_LOG(gwlog::kWarning, "refresh refused: %s", error.c_str());
        rsp = refusalValue(uriCode, error);
        return answer;
    }
    const DeviceLookup lookup = directory_.reread(deviceIndex).lookup;
    if (lookup != DeviceLookup::found) {
        const bool unknown = lookup == DeviceLookup::unknown;
        MEDIAD_LOG(gwlog::kWarning, "refresh of device %s refused: %s", deviceIndex.c_str(),
                   unknown ? "no such device" : "device store unreadable");
        rsp = refusalValue(unknown ? refusedUnknown : refusedStoreFailed,
                           unknown ? "Unknown device" : "Device store unavailable");
        return answer;
    }
    if (listeners_.open(deviceIndex, port, error) == ListenOutcome::portTaken) {
        rsp = refusalValue(refusedPortTaken, error);
        return answer;
    }
    rsp["listenStatus"] = listenStatus(deviceIndex, port);
    return answer;
}

// One entry per asked device that has a listener, even a down one; asked twice, listed once.
Json::Value MediaCommands::getMediaPortStatus(const Json::Value& params) {
    const Json::Value* asked = member(params, "devindexCodeList");
    if (asked == nullptr || !asked->isArray()) {
        MEDIAD_LOG(gwlog::kWarning, "GetMediaPortStatus refused: no devindexCodeList array");
        return refusalValue(refusedMalformed, "params.devindexCodeList must be an array of strings");
    }
    for (const Json::Value& deviceIndex : *asked) {
        if (!deviceIndex.isString()) {
            MEDIAD_LOG(gwlog::kWarning, "GetMediaPortStatus refused: a device index is not a string");
            return refusalValue(refusedMalformed, "params.devindexCodeList must be an array of strings");
        }
    }
    Json::Value answer(Json::objectValue);
    Json::Value& statuses = answer["data"]["listenStatus"] = Json::Value(Json::arrayValue);
    std::set<std::string> listed;
    for (const Json::Value& value : *asked) {
        const std::string deviceIndex = value.asString();
        if (listeners_.has(deviceIndex) && listed.insert(deviceIndex).second) {
            statuses.append(listenStatus(deviceIndex, listeners_.port(deviceIndex)));
        }
    }
    return answer;
}

// Every entry, so that the gateway can compare them with the stored bindings.
Json::Value MediaCommands::listMediaPorts() const {
    Json::Value answer(Json::objectValue);
    Json::Value& statuses = answer["data"]["listenStatus"] = Json::Value(Json::arrayValue);
    for (const std::string& deviceIndex : listeners_.devices()) {
        statuses.append(listenStatus(deviceIndex, listeners_.port(deviceIndex)));
    }
    return answer;
}

Json::Value MediaCommands::listenStatus(const std::string& deviceIndex, uint16_t port) const {
    Json::Value status(Json::objectValue);
    status["deviceIndex"] = deviceIndex;
    status["rtspPort"] = port;
    status["status"] = listeners_.listening(deviceIndex) && listeners_.port(deviceIndex) == port ? "success" : "fail";
    return status;
}

}  // namespace mediad
