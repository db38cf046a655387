// The device store's records as the management API shows them.
#pragma once

#include <json/json.h>

#include <memory>

#include "ZQDeviceMgr.h"
#include "ZQGatewayDevices.h"

namespace gatewayd {

// {"userIndex","userName","deviceIndex","addTime"}
Json::Value userJson(const ZQDeviceMgr::CTELMIUser& user);
// {"portIndex","deviceIndex","httpPort","rtspPort","httpListening","rtspListening","addTime"};
// the listening states are those the last refresh recorded (0 when unknown).
Json::Value portJson(const ZQDeviceMgr::CTELMIPort& port);
// {"deviceIndex","protocol","deviceID","name","category","telmiAddress","rtspAddress",
//  "telmiBound","portBound"}; deviceID is the access ID of the device's protocol.
Json::Value deviceJson(const ZQGateway::CGatewayDevice& device);
// The device's access ID: its Tarn5 ID for a Tarn5 device, its Tarn ID otherwise.
std::string accessID(const ZQDeviceMgr::CKelDevice& device);

}  // namespace gatewayd
