// The paging query shared by the user and port lists: ?start=0&max=50&keyword=
#pragma once

#include <httplib.h>
#include <json/json.h>

#include "ZQTELMIMgrBusRecords.h"

namespace gatewayd {

// start (default 0) and max (default 50), each 0 to 500; keyword at most 128 characters.
ZQTELMIMgrBus::tagTelmiQueryReq pageRequest(const httplib::Request& req);
// {"totalMatches", "numReturned", <listName>: items}
Json::Value pageJson(const ZQTELMIMgrBus::tagTelmiQueryRsp& rsp, const char* listName, const Json::Value& items);

}  // namespace gatewayd
