#include "Commands.h"

#include "ResultMeaning.h"
#include "RetryProgress.h"
#include "Table.h"

namespace telmictl {

void portList(Session& session, const Paging& paging) {
    const auto page = session.accept(session.api().get("/api/ports", pagingQuery(paging)));
    if (!page || session.json()) {
        return;
    }
    const auto deviceIds = deviceIdsByIndex(session);
    Table table({"PORT INDEX", "DEVICE", "HTTP", "RTSP", "HTTP LISTENING", "RTSP LISTENING", "ADDED"});
    for (const auto& port : (*page)["ports"]) {
        const std::string deviceIndex = port["deviceIndex"].asString();
        const auto device = deviceIds.find(deviceIndex);
        table.add({port["portIndex"].asString(), device != deviceIds.end() ? device->second : deviceIndex,
                   std::to_string(port["httpPort"].asUInt()), std::to_string(port["rtspPort"].asUInt()),
                   yesNo(port["httpListening"].asInt()), yesNo(port["rtspListening"].asInt()),
                   port["addTime"].asString()});
    }
    table.print(stdout);
    sayPage(session, *page, paging, "port binding");
}

void portBind(Session& session, const std::vector<std::string>& deviceIDs) {
    Json::Value request;
    for (const auto& id : deviceIDs) {
        request["deviceIDs"].append(id);
    }
    if (const auto body = session.accept(session.api().post("/api/ports", request))) {
        for (const auto& entry : (*body)["results"]) {
            session.reportItem(entry["deviceID"].asString(), entry,
                               "bound to HTTP port " + std::to_string(entry["httpPort"].asUInt()) + " and RTSP port " +
                                   std::to_string(entry["rtspPort"].asUInt()) + ", port index " +
                                   entry["portIndex"].asString(),
                               gwapi::Job::bindPort);
        }
        session.finishBatch((*body)["results"]);
        session.say(
            "clients of these ports sign in as \"admin\" with the gateway's port-mode password "
            "(telmictl port passwd), not as a TELMI user");
    }
}

void portUnbind(Session& session, const std::vector<std::string>& portIndexes) {
    Json::Value request;
    for (const auto& index : portIndexes) {
        request["portIndexes"].append(index);
    }
    if (const auto body = session.accept(session.api().post("/api/ports/unbind", request))) {
        for (const auto& entry : (*body)["results"]) {
            session.reportItem(entry["portIndex"].asString(), entry, "unbound");
        }
        session.finishBatch((*body)["results"]);
    }
}

void portUnbindDevices(Session& session, const std::vector<std::string>& deviceIDs) {
    if (const auto indexes = indexesOf(session, deviceIDs, portIndexOf)) {
        portUnbind(session, *indexes);
    }
}

void portRetry(Session& session, const std::string& portIndex) {
    gwapi::ApiAnswer answer;
    {
        RetryProgress progress("waiting for nginx and the media daemon to listen");
        answer = session.api().post("/api/ports/" + gwapi::pathSegment(portIndex) + "/retry");
    }
    const auto body = session.accept(answer);
    if (!body) {
        return;
    }
    session.say(std::string("port index ") + portIndex + ": HTTP listening " + yesNo((*body)["httpListening"].asInt()) +
                ", RTSP listening " + yesNo((*body)["rtspListening"].asInt()));
    const int code = itemCode(*body);
    if (code != 0) {
        session.fail(kExitRefused,
                     "the retry did not bring every listener up: " + std::string(gwapi::meaningOf(code).message) +
                         " (code " + std::to_string(code) + ")");
    }
}

}  // namespace telmictl
