// Port bindings: list with live listening states, batch bind, batch unbind, retry.
#include "ApiError.h"
#include "ApiPaging.h"
#include "ApiReply.h"
#include "ApiRoutes.h"
#include "JsonInput.h"
#include "RecordJson.h"
#include "ZQGatewayMedia.h"

namespace gatewayd {
namespace {

constexpr size_t kMaxDeviceID = 31;
constexpr size_t kMaxIndex = 36;
constexpr int kServiceFailed = 9;

}  // namespace

void addPortRoutes(ApiRouter& routes, const TelmiLibrary& library) {
    routes.get("/api/ports", [&library](const httplib::Request& req, httplib::Response& res) {
        const ZQTELMIMgrBus::tagTelmiQueryReq page = pageRequest(req);
        std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> ports;
        ZQTELMIMgrBus::tagTelmiQueryRsp rsp {};
        const unsigned unansweredBefore = ZQ_Gateway_UnansweredMediaCommands();
        if (const int code = library.queryPortList(ports, rsp, page); code != 0) {
            throw ApiError::fromCode(code, "the port list cannot be read");
        }
        // Unasked, the records keep the RTSP states of the last refresh the media daemon
        // answered: shown as they are, a dead daemon would look as if it still listened.
        const bool mediaSilent = ZQ_Gateway_UnansweredMediaCommands() != unansweredBefore;
        Json::Value items(Json::arrayValue);
        for (const auto& port : ports) {
            Json::Value item = portJson(*port);
            if (mediaSilent) {
                item["rtspListening"] = 0;
            }
            items.append(item);
        }
        Json::Value body = pageJson(rsp, "ports", items);
        if (mediaSilent) {
            body["mediaModule"] = resultEntry(kServiceFailed);
            body["mediaModule"]["message"] = "the media module did not answer: no RTSP port is known to listen";
        }
        replyJson(res, 200, body);
    });

    routes.post("/api/ports", [&library](const httplib::Request& req, httplib::Response& res) {
        const std::vector<std::string> deviceIDs = textArrayMember(parseObject(req.body), "deviceIDs", kMaxDeviceID);
        std::vector<ZQTELMIMgrBus::tagBindPortRet> rets;
        library.bindPort(rets, deviceIDs);
        Json::Value body;
        body["results"] = Json::Value(Json::arrayValue);
        for (size_t i = 0; i < rets.size() && i < deviceIDs.size(); ++i) {
            Json::Value entry = resultEntry(rets[i].resultCode, gwapi::Job::bindPort);
            entry["deviceID"] = deviceIDs[i];
            // A failed bind may still name the binding it removed again: only a kept one is shown.
            if (rets[i].resultCode == 0 && rets[i].port != nullptr) {
                entry["portIndex"] = rets[i].port->getPortIndex();
                entry["httpPort"] = rets[i].port->getHttpPort();
                entry["rtspPort"] = rets[i].port->getRtspPort();
            }
            body["results"].append(entry);
        }
        replyJson(res, 200, body);
    });

    routes.post("/api/ports/unbind", [&library](const httplib::Request& req, httplib::Response& res) {
        const std::vector<std::string> indexes = textArrayMember(parseObject(req.body), "portIndexes", kMaxIndex);
        std::vector<int> codes;
        library.unbindPort(codes, indexes);
        Json::Value body;
        body["results"] = Json::Value(Json::arrayValue);
        for (size_t i = 0; i < codes.size() && i < indexes.size(); ++i) {
            Json::Value entry = resultEntry(codes[i]);
            entry["portIndex"] = indexes[i];
            body["results"].append(entry);
        }
        replyJson(res, 200, body);
    });

    // May take about 50 s when nginx is slow to listen; the answer tells the outcome.
    routes.post(R"(/api/ports/([^/]+)/retry)", [&library](const httplib::Request& req, httplib::Response& res) {
        const std::string portIndex = req.matches[1];
        if (portIndex.size() > kMaxIndex) {
            throw ApiError::badInput("a port index is at most 36 characters");
        }
        ZQTELMIMgrBus::tagBindPortRet ret;
        if (const int code = library.bindRetry(ret, portIndex); code != 0) {
            throw ApiError::fromCode(code, "the binding was not retried");
        }
        Json::Value body = resultEntry(ret.resultCode);
        const Json::Value port = ret.port != nullptr ? portJson(*ret.port) : Json::Value();
        body["httpListening"] = port.get("httpListening", 0);
        body["rtspListening"] = port.get("rtspListening", 0);
        replyJson(res, 200, body);
    });
}

}  // namespace gatewayd
