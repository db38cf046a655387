#include "Reconciler.h"

#include "DriverCif.h"
#include "GatewaydLog.h"
#include "JsonText.h"
#include "UtcTime.h"
#include "ZQBase.h"
#include "ZQGatewayHome.h"
#include "ZQGatewayNginx.h"

namespace gatewayd {
namespace {

constexpr const char* kLastRepairFile = "run/last-repair";

bool putMediaPorts(const Json::Value& devices) {
    Json::Value command(Json::objectValue);
    command["method"] = "PutMediaPort";
    command["moduleType"] = 10;
    command["params"]["devices"] = devices;
    const std::string text = gwapi::compactJson(command);
    ZQGateway::tagGatewaySettings settings;
    ZQ_Gateway_GetSettings(settings);
    char* answer = nullptr;
    int length = 0;
    std::string error;
    if (DriverCif_InputCmdToMediaSyn(text.c_str(), static_cast<int>(text.size()), &answer, &length, &error, 0,
                                     std::max(1, settings.mediaTimeoutMs / 1000)) != 0) {
        GATEWAYD_LOG(gwlog::kWarning, "listeners: the media daemon did not take the repair: %s", error.c_str());
        return false;
    }
    DriverCif_FreeBuffer(answer);
    return true;
}

Json::Value mediaEntry(const std::string& deviceIndex, int rtspPort, bool bind) {
    Json::Value entry(Json::objectValue);
    entry["devIndex"] = deviceIndex;
    entry["rtspPortBind"] = bind;
    entry["rtspPort"] = rtspPort;
    return entry;
}

}  // namespace

std::vector<std::string> Reconciler::pass(bool force) {
    std::lock_guard<std::mutex> lock(passMutex_);
    const std::vector<Drift> drift = findDrift(readListenerViews());
    std::vector<Drift> due;
    std::set<std::string> seen;
    for (const Drift& d : drift) {
        seen.insert(d.key);
        if (force || seenBefore_.count(d.key) != 0) {
            due.push_back(d);
        }
    }
    seenBefore_ = seen;
    // A drift that comes back after it went away is logged again.
    for (auto it = logged_.begin(); it != logged_.end();) {
        it = seen.count(*it) != 0 ? std::next(it) : logged_.erase(it);
    }
    if (due.empty()) {
        return {};
    }
    repair(due);
    std::vector<std::string> repaired;
    for (const Drift& d : due) {
        repaired.push_back(d.what);
        if (logged_.insert(d.key).second) {
            GATEWAYD_LOG(gwlog::kWarning, "listeners out of step with the stored bindings, repaired: %s",
                         d.what.c_str());
        }
    }
    remember(repaired);
    return repaired;
}

void Reconciler::repair(const std::vector<Drift>& drift) {
    ZQBase::CNginxOper* nginx = ZQBase::CNginxOper::getInstance();
    bool reload = false;
    Json::Value closes(Json::arrayValue), opens(Json::arrayValue);
    for (const Drift& d : drift) {
        int port = d.binding.httpPort;
        switch (d.kind) {
            case Drift::nginxMissing: reload |= nginx->ModifyConfig(ZQBase::addListenPort, &port, nullptr) != 0; break;
            case Drift::nginxOrphan: reload |= nginx->ModifyConfig(ZQBase::delListenPort, &port, nullptr) != 0; break;
            case Drift::nginxNotLoaded:
            case Drift::nginxStale: reload = true; break;
            case Drift::mediaMissing: opens.append(mediaEntry(d.binding.deviceIndex, d.binding.rtspPort, true)); break;
            case Drift::mediaOrphan:
                closes.append(mediaEntry(d.listener.deviceIndex, d.listener.rtspPort, false));
                break;
        }
    }
    // Closed first: a port an orphan holds may be the one a missing listener needs.
    for (const Json::Value& open : opens) {
        closes.append(open);
    }
    if (!closes.empty()) {
        putMediaPorts(closes);
    }
    // A dead nginx is the supervisor's to start: two starters would race for its ports.
    if (reload && ZQ_Gateway_NginxMasterPid() != 0 && nginx->Reboot() == 0) {
        GATEWAYD_LOG(gwlog::kError, "listeners: nginx did not take the repaired port list");
    }
}

void Reconciler::remember(const std::vector<std::string>& repaired) {
    std::string what;
    for (const std::string& text : repaired) {
        what += (what.empty() ? "" : "; ") + text;
    }
    Json::Value last(Json::objectValue);
    last["time"] = gwio::utcTimestamp();
    last["what"] = what;
    ZQ_Gateway_WriteFileAtomically(ZQ_Gateway_HomePath(kLastRepairFile), last["time"].asString() + " " + what + "\n",
                                   0600, false);
    std::lock_guard<std::mutex> lock(lastMutex_);
    lastRepair_ = last;
}

Json::Value Reconciler::viewsJson() const {
    const ListenerViews views = readListenerViews();
    return listenerViewsJson(views, findDrift(views));
}

Json::Value Reconciler::lastRepairJson() const {
    std::lock_guard<std::mutex> lock(lastMutex_);
    return lastRepair_;
}

}  // namespace gatewayd
