#include "RecordJson.h"

namespace gatewayd {

Json::Value userJson(const ZQDeviceMgr::CTELMIUser& user) {
    Json::Value json;
    json["userIndex"] = user.getUserIndex();
    json["userName"] = user.getUserName();
    json["deviceIndex"] = user.getDeviceIndex();
    json["addTime"] = user.getAddTime();
    return json;
}

Json::Value portJson(const ZQDeviceMgr::CTELMIPort& port) {
    const auto* live = dynamic_cast<const ZQGateway::CGatewayPort*>(&port);
    Json::Value json;
    json["portIndex"] = port.getPortIndex();
    json["deviceIndex"] = port.getDeviceIndex();
    json["httpPort"] = port.getHttpPort();
    json["rtspPort"] = port.getRtspPort();
    json["httpListening"] = live != nullptr ? live->getHttpPortStatus() : 0;
    json["rtspListening"] = live != nullptr ? live->getRtspPortStatus() : 0;
    json["addTime"] = port.getAddTime();
    return json;
}

std::string accessID(const ZQDeviceMgr::CKelDevice& device) {
    return device.getProtocol() == 4 ? device.getTarn5DeviceID() : device.getTarnDeviceID();
}

Json::Value deviceJson(const ZQGateway::CGatewayDevice& device) {
    Json::Value json;
    json["deviceIndex"] = device.getDeviceIndex();
    json["protocol"] = device.getProtocol();
    json["deviceID"] = accessID(device);
    json["name"] = device.getDeviceName();
    json["category"] = device.getCategory();
    json["telmiAddress"] = device.getTelmiAddress();
    json["rtspAddress"] = device.getRtspAddress();
    json["telmiBound"] = device.getTELMIBoundStatus() != 0 ? 1 : 0;
    json["portBound"] = device.getTELMIPortBoundStatus() != 0 ? 1 : 0;
    return json;
}

}  // namespace gatewayd
