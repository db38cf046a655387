#include "Commands.h"

#include "Table.h"

namespace telmictl {

namespace {

const char* protocolName(int protocol) {
    switch (protocol) {
        case 2: return "tarn";
        case 4: return "tarn5";
        default: return "other";
    }
}

}  // namespace

std::map<std::string, std::string> deviceIdsByIndex(Session& session) {
    std::map<std::string, std::string> ids;
    const gwapi::ApiAnswer answer = session.api().get("/api/devices");
    if (answer.status == 200 && answer.json.isObject()) {
        for (const auto& device : answer.json["devices"]) {
            ids[device["deviceIndex"].asString()] = device["deviceID"].asString();
        }
    }
    return ids;
}

void deviceList(Session& session, const Paging& paging) {
    httplib::Params query = pagingQuery(paging);
    query.emplace("reach", "1");
    const auto body = session.accept(session.api().get("/api/devices", query));
    if (!body || session.json()) {
        return;
    }
    Table table({"DEVICE INDEX", "PROTOCOL", "DEVICE ID", "NAME", "CATEGORY", "TELMI ADDRESS", "RTSP ADDRESS", "USER",
                 "PORT", "TELMI"});
    for (const auto& device : (*body)["devices"]) {
        table.add({device["deviceIndex"].asString(), protocolName(device["protocol"].asInt()),
                   device["deviceID"].asString(), device["name"].asString(), std::to_string(device["category"].asInt()),
                   device["telmiAddress"].asString(), device["rtspAddress"].asString(),
                   yesNo(device["telmiBound"].asInt()), yesNo(device["portBound"].asInt()),
                   device["telmi"].asString()});
    }
    table.print(stdout);
    sayPage(session, *body, paging, "device");
}

void deviceAdd(Session& session, const DeviceInput& device) {
    Json::Value request;
    request["protocol"] = device.protocol;
    request["deviceID"] = device.deviceID;
    request["category"] = device.category;
    if (!device.name.empty()) {
        request["name"] = device.name;
    }
    if (!device.telmiAddress.empty()) {
        request["telmiAddress"] = device.telmiAddress;
    }
    if (!device.rtspAddress.empty()) {
        request["rtspAddress"] = device.rtspAddress;
    }
    if (const auto body = session.accept(session.api().post("/api/devices", request), 201)) {
        session.say("device " + device.deviceID + " added, device index " + (*body)["deviceIndex"].asString());
    }
}

void deviceRemove(Session& session, const std::string& deviceIndex) {
    if (session.accept(session.api().remove("/api/devices/" + gwapi::pathSegment(deviceIndex)))) {
        session.say("device index " + deviceIndex +
                    " removed; the gateway releases its TELMI user and port binding shortly");
    }
}

}  // namespace telmictl
