#include "ApiPaging.h"

#include "FixedField.h"
#include "JsonInput.h"

namespace gatewayd {
namespace {

constexpr int kMaxPaging = 500;
constexpr int kDefaultPageSize = 50;

}  // namespace

ZQTELMIMgrBus::tagTelmiQueryReq pageRequest(const httplib::Request& req) {
    ZQTELMIMgrBus::tagTelmiQueryReq page {};
    page.startPos = queryInt(req, "start", 0, 0, kMaxPaging);
    page.maxResults = queryInt(req, "max", kDefaultPageSize, 0, kMaxPaging);
    gwio::copyToField(page.keyWord, queryText(req, "keyword", sizeof(page.keyWord) - 1));
    return page;
}

Json::Value pageJson(const ZQTELMIMgrBus::tagTelmiQueryRsp& rsp, const char* listName, const Json::Value& items) {
    Json::Value json;
    json["totalMatches"] = rsp.totalMatches;
    json["numReturned"] = rsp.numReturned;
    json[listName] = items;
    return json;
}

}  // namespace gatewayd
