// The media module's RTSP listeners, reached only through synchronous JSON commands.
#include <json/json.h>

#include <cstring>
#include <map>

#include "DriverCif.h"
#include "frame/CInstanceMgr.h"
#include "frame/FieldText.h"
#include "frame/Log.h"
#include "frame/ResultCode.h"

namespace ZQTELMIMgrBus {

namespace {

constexpr int kMediaModuleType = 10;
constexpr int kReservedArgument = 0;
constexpr int kMillisecondsPerSecond = 1000;
const char* const kListening = "success";

Json::Value mediaCommand(const char* method, const Json::Value& params) {
    Json::Value command(Json::objectValue);
    command["method"] = method;
    command["moduleType"] = kMediaModuleType;
    command["params"] = params;
    return command;
}

// The member of an object, or null; answers are untrusted, so a non-object simply has no members.
const Json::Value* member(const Json::Value& holder, const char* key) {
    return holder.isObject() ? holder.find(key, key + std::strlen(key)) : nullptr;
}

bool isStringMember(const Json::Value& holder, const char* key) {
    const Json::Value* value = member(holder, key);
    return value != nullptr && value->isString();
}

// One port's report: {"deviceIndex": text, "rtspPort": integer, "status": text}.
bool isListenStatus(const Json::Value* status) {
    if (status == nullptr || !isStringMember(*status, "deviceIndex") || !isStringMember(*status, "status")) {
        return false;
    }
    const Json::Value* port = member(*status, "rtspPort");
    return port != nullptr && port->isInt();
}

bool reportsListening(const Json::Value& status) { return status["status"].asString() == kListening; }

// A refusal carries "statusCode" of any type and a text "statusString".
bool isRefusal(const Json::Value& holder) {
    return member(holder, "statusCode") != nullptr && isStringMember(holder, "statusString");
}

}  // namespace

bool CInstanceMgr::exchangeMedia(Json::Value& answer, const Json::Value& command, const char* caller) {
    // FastWriter's compact text, final line feed included, is the command format the media module reads.
    const std::string text = Json::FastWriter().write(command);
    char* buffer = nullptr;
    int length = 0;
    std::string errorText;

    auto privateCfg = ZQ_ConfigMgr_GetPrivateCfg();
    if (!privateCfg) {
        ZQ_LOG_AS(caller, kLogError, "get basicCfg ptr error.");
        return false;
    }
    ZQConfigMgr::tagInternalCommunicationInfo commInfo {};
    privateCfg->getInternalCommParams(commInfo);
    const int timeLimitSec = commInfo.timeout / kMillisecondsPerSecond;

    if (DriverCif_InputCmdToMediaSyn(text.c_str(), static_cast<int>(text.size()), &buffer, &length, &errorText,
                                     kReservedArgument, timeLimitSec) != 0) {
        ZQ_LOG_AS(caller, kLogError, "[errMsg=%s]DriverCif_InputCmdToMediaSyn error.", errorText.c_str());
        return false;
    }
    Json::Reader reader;
    const bool parsed = reader.parse(buffer, buffer + length, answer, true);
    if (!parsed) {
        // The answer buffer need not end in a NUL.
        const std::string rsp(buffer, static_cast<size_t>(length));
        ZQ_LOG_AS(caller, kLogError, "DriverCIf_InputCmdByDevSyn return rsp=%s err.", rsp.c_str());
    }
    DriverCif_FreeBuffer(buffer);
    return parsed;
}

int CInstanceMgr::notifyMediaTELMIPort(std::vector<MediaPortInfo> infos) {
    if (infos.empty()) {
        return kNotDone;
    }
    Json::Value devices(Json::arrayValue);
    for (const auto& info : infos) {
        Json::Value device(Json::objectValue);
        device["devIndex"] = fieldText(info.devIndex);
        device["rtspPortBind"] = info.rtspPortBind == 1;
        device["rtspPort"] = Json::UInt(info.rtspPort);
        devices.append(device);
    }
    Json::Value params(Json::objectValue);
    params["devices"] = devices;

    Json::Value answer;
    if (!exchangeMedia(answer, mediaCommand("PutMediaPort", params), __func__)) {
        return kNotDone;
    }
    // Any text code is an acceptance; the media module's codes are only worth a log line.
    if (!isStringMember(answer, "code")) {
        ZQ_LOG(kLogError, "DriverCIf_InputCmdByDevSyn return err rsp.");
        return kNotDone;
    }
    ZQ_LOG(kLogDetail, "notifyMediaTELMIPort rspCode=%s", answer["code"].asCString());
    return kDone;
}

int CInstanceMgr::retryMediaTELMIPort(int& listening, const std::string& devIndex, unsigned short rtspPort) {
    listening = 0;
    Json::Value params(Json::objectValue);
    params["method"] = "PUT";
    params["uri"] = "/TELMI/ContentMgmt/DeviceMgmt/refreshDevicePort?format=json&devIndex=" + devIndex +
                    "&newPort=false&portType=rtsp&portNo=" + std::to_string(rtspPort);
    params["body"] = Json::Value(Json::nullValue);

    Json::Value answer;
    if (!exchangeMedia(answer, mediaCommand("gatewayProtocol", params), __func__)) {
        return kServiceFailed;
    }
    const Json::Value* data = member(answer, "data");
    const Json::Value* rsp = data != nullptr ? member(*data, "rsp") : nullptr;
    if (rsp == nullptr) {
        // No reply body: understood, and not listening.
        return kOk;
    }
    const Json::Value* status = member(*rsp, "listenStatus");
    if (isListenStatus(status)) {
        if (reportsListening(*status)) {
            listening = 1;
            return kOk;
        }
        ZQ_LOG(kLogError, "[rtspport=%d,listenstatus=%s] Retry result.", (*status)["rtspPort"].asInt(),
               (*status)["status"].asCString());
        return kPortNotListening;
    }
    if (isRefusal(*rsp)) {
        ZQ_LOG(kLogError, "DriverCIf_InputCmdByDevSyn return statusString=%s error",
               (*rsp)["statusString"].asCString());
    }
    return kServiceFailed;
}

int CInstanceMgr::updateMediaTELMIPortStatus(std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>>& ports) {
    Json::Value devindexCodeList(Json::arrayValue);
    for (const auto& port : ports) {
        if (port->getRtspPort() != 0) {
            devindexCodeList.append(port->getDeviceIndex());
        }
    }
    const Json::ArrayIndex asked = devindexCodeList.size();
    if (asked < 1) {
        return kOk;
    }
    Json::Value params(Json::objectValue);
    params["devindexCodeList"] = devindexCodeList;

    Json::Value answer;
    if (!exchangeMedia(answer, mediaCommand("GetMediaPortStatus", params), __func__)) {
        return kServiceFailed;
    }
    const Json::Value* data = member(answer, "data");
    const Json::Value* statuses = data != nullptr ? member(*data, "listenStatus") : nullptr;
    if (statuses == nullptr || !statuses->isArray()) {
        if (isRefusal(answer)) {
            ZQ_LOG(kLogError, "DriverCIf_InputCmdByDevSyn return statusString=%s error",
                   answer["statusString"].asCString());
        } else {
            ZQ_LOG(kLogError, "Error rsp.");
        }
        return kServiceFailed;
    }

    // A device reported twice keeps its first report.
    std::map<std::string, int> listeningByDevice;
    for (const auto& status : *statuses) {
        if (!isListenStatus(&status)) {
            continue;
        }
        const std::string deviceIndex = status["deviceIndex"].asString();
        const int listening = reportsListening(status) ? 1 : 0;
        if (listening == 0) {
            ZQ_LOG(kLogWarn, "[devIndex=%s, rtspport=%d,listenstatus=%s].", deviceIndex.c_str(),
                   status["rtspPort"].asInt(), status["status"].asCString());
        }
        listeningByDevice.emplace(deviceIndex, listening);
    }
    if (asked != listeningByDevice.size()) {
        ZQ_LOG(kLogWarn, "Req number doest not equal rsp number.");
    }

    for (auto& port : ports) {
        if (port->getRtspPort() == 0) {
            continue;
        }
        const std::string deviceIndex = port->getDeviceIndex();
        auto found = listeningByDevice.find(deviceIndex);
        if (found == listeningByDevice.end()) {
            ZQ_LOG(kLogWarn, "[devIndex=%s]Don't have this device rtsp port status.", deviceIndex.c_str());
            continue;
        }
        port->setRtspPortStatus(found->second);
    }
    return kOk;
}

}  // namespace ZQTELMIMgrBus
