#include "ListenerViews.h"

#include <algorithm>
#include <list>
#include <map>

#include "DriverCif.h"
#include "JsonText.h"
#include "ZQBase.h"
#include "ZQDeviceMgr.h"
#include "ZQGatewayHome.h"
#include "ZQGatewayNginx.h"

namespace gatewayd {
namespace {

// The daemon's listeners; false when it does not answer in its time limit.
bool readMediaListeners(std::vector<MediaListener>& listeners) {
    ZQGateway::tagGatewaySettings settings;
    ZQ_Gateway_GetSettings(settings);
    const std::string command = R"({"method":"ListMediaPorts","moduleType":10,"params":{}})";
    char* answerText = nullptr;
    int answerLength = 0;
    std::string error;
    if (DriverCif_InputCmdToMediaSyn(command.c_str(), static_cast<int>(command.size()), &answerText, &answerLength,
                                     &error, 0, std::max(1, settings.mediaTimeoutMs / 1000)) != 0) {
        return false;
    }
    const std::string text(answerText, static_cast<size_t>(answerLength));
    DriverCif_FreeBuffer(answerText);
    Json::Value answer;
    if (!gwapi::parseJson(text, answer, error) || !answer.isObject() || !answer["data"].isObject() ||
        !answer["data"]["listenStatus"].isArray()) {
        return false;
    }
    for (const Json::Value& entry : answer["data"]["listenStatus"]) {
        if (entry.isObject() && entry["deviceIndex"].isString() && gwapi::isJsonInteger(entry["rtspPort"])) {
            listeners.push_back({entry["deviceIndex"].asString(), entry["rtspPort"].asInt(),
                                 entry["status"].isString() && entry["status"].asString() == "success"});
        }
    }
    return true;
}

NginxPortState nginxPortState(int port, const std::list<int>& nginxPids) {
    if (CheckPort(port, 1) != -1) {
        return NginxPortState::notLoaded;
    }
    return CheckPortOccupy(nginxPids, "0.0.0.0", port, 1) == 0 ? NginxPortState::listening
                                                               : NginxPortState::heldByOther;
}

const char* nginxWord(const ListenerViews& views, int port) {
    if (views.nginxListening.count(port) != 0) {
        return "listening";
    }
    if (views.heldByOther.count(port) != 0) {
        return "held by another program";
    }
    return views.nginxConfigured.count(port) != 0 ? "configured, not listening" : "missing";
}

std::string mediaWord(const ListenerViews& views, const StoredBinding& binding) {
    if (binding.rtspPort == 0) {
        return "none";
    }
    if (!views.mediaAnswered) {
        return "unknown";
    }
    for (const MediaListener& listener : views.media) {
        if (listener.deviceIndex == binding.deviceIndex) {
            if (listener.rtspPort != binding.rtspPort) {
                return "on port " + std::to_string(listener.rtspPort);
            }
            return listener.listening ? "listening" : "down";
        }
    }
    return "missing";
}

StoredBinding portOnly(int httpPort) {
    StoredBinding binding;
    binding.httpPort = httpPort;
    return binding;
}

}  // namespace

ListenerViews readListenerViews() {
    ListenerViews views;
    views.mediaAnswered = readMediaListeners(views.media);
    views.nginxMaster = ZQ_Gateway_NginxMasterPid();
    views.nginxConfigured = ZQ_Gateway_NginxConfiguredPorts();
    views.nginxUnlisted = ZQ_Gateway_NginxUnlistedPorts();
    std::vector<int> pids;
    ZQBase::CNginxOper::getInstance()->getPid(pids);
    const std::list<int> nginxPids(pids.begin(), pids.end());

    std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> ports;
    ZQ_DeviceMgr_GetAllTELMIPort(ports);
    std::set<int> probe = views.nginxConfigured;
    for (const auto& port : ports) {
        views.store.push_back({port->getPortIndex(), port->getDeviceIndex(), port->getHttpPort(), port->getRtspPort()});
        probe.insert(port->getHttpPort());
    }
    for (int port : probe) {
        switch (nginxPortState(port, nginxPids)) {
            case NginxPortState::listening: views.nginxListening.insert(port); break;
            case NginxPortState::heldByOther: views.heldByOther.insert(port); break;
            case NginxPortState::notLoaded: break;
        }
    }
    return views;
}

std::vector<Drift> findDrift(const ListenerViews& views) {
    std::vector<Drift> drift;
    std::set<int> storedHttp;
    std::map<std::string, int> storedRtsp;  // device index -> its binding's RTSP port
    for (const StoredBinding& binding : views.store) {
        storedHttp.insert(binding.httpPort);
        if (binding.rtspPort != 0) {
            storedRtsp[binding.deviceIndex] = binding.rtspPort;
        }
        const std::string http = std::to_string(binding.httpPort);
        if (views.nginxConfigured.count(binding.httpPort) == 0) {
            drift.push_back({Drift::nginxMissing,
                             "nginx-missing:" + http,
                             "nginx does not list HTTP port " + http + " of binding " + binding.portIndex,
                             binding,
                             {}});
        } else if (views.nginxMaster != 0 && views.nginxListening.count(binding.httpPort) == 0 &&
                   views.heldByOther.count(binding.httpPort) == 0) {
            drift.push_back(
                {Drift::nginxNotLoaded,
                 "nginx-unloaded:" + http,
                 "nginx lists HTTP port " + http + " of binding " + binding.portIndex + " but does not listen on it",
                 binding,
                 {}});
        }
        if (views.mediaAnswered && binding.rtspPort != 0) {
            const std::string state = mediaWord(views, binding);
            if (state == "missing" || state.rfind("on port", 0) == 0) {
                drift.push_back({Drift::mediaMissing,
                                 "media-missing:" + binding.deviceIndex + ":" + std::to_string(binding.rtspPort),
                                 "the media daemon has no listener on RTSP port " + std::to_string(binding.rtspPort) +
                                     " of binding " + binding.portIndex + " (" + state + ")",
                                 binding,
                                 {}});
            }
        }
    }
    for (int port : views.nginxConfigured) {
        if (storedHttp.count(port) == 0) {
            drift.push_back({Drift::nginxOrphan,
                             "nginx-orphan:" + std::to_string(port),
                             "nginx lists HTTP port " + std::to_string(port) + ", which no binding holds",
                             portOnly(port),
                             {}});
        }
    }
    for (int port : views.nginxUnlisted) {
        if (storedHttp.count(port) == 0) {
            drift.push_back({Drift::nginxStale,
                             "nginx-stale:" + std::to_string(port),
                             "nginx still listens on HTTP port " + std::to_string(port) +
                                 ", which neither its port list nor any binding holds",
                             portOnly(port),
                             {}});
        }
    }
    if (views.mediaAnswered) {
        for (const MediaListener& listener : views.media) {
            const auto stored = storedRtsp.find(listener.deviceIndex);
            if (stored == storedRtsp.end()) {
                drift.push_back({Drift::mediaOrphan,
                                 "media-orphan:" + listener.deviceIndex + ":" + std::to_string(listener.rtspPort),
                                 "the media daemon listens on RTSP port " + std::to_string(listener.rtspPort) +
                                     " for device " + listener.deviceIndex + ", which has no binding with one",
                                 {},
                                 listener});
            }
        }
    }
    return drift;
}

Json::Value listenerViewsJson(const ListenerViews& views, const std::vector<Drift>& drift) {
    Json::Value json(Json::objectValue);
    json["inStep"] = drift.empty() && views.mediaAnswered && views.nginxMaster != 0;
    json["nginxRunning"] = views.nginxMaster != 0;
    json["mediaAnswered"] = views.mediaAnswered;
    Json::Value& bindings = json["bindings"] = Json::Value(Json::arrayValue);
    for (const StoredBinding& binding : views.store) {
        Json::Value entry(Json::objectValue);
        entry["portIndex"] = binding.portIndex;
        entry["deviceIndex"] = binding.deviceIndex;
        entry["httpPort"] = binding.httpPort;
        entry["rtspPort"] = binding.rtspPort;
        entry["nginx"] = nginxWord(views, binding.httpPort);
        entry["media"] = mediaWord(views, binding);
        bindings.append(entry);
    }
    Json::Value& nginxOrphans = json["orphans"]["nginx"] = Json::Value(Json::arrayValue);
    Json::Value& mediaOrphans = json["orphans"]["media"] = Json::Value(Json::arrayValue);
    Json::Value& problems = json["problems"] = Json::Value(Json::arrayValue);
    for (const Drift& d : drift) {
        problems.append(d.what);
        if (d.kind == Drift::nginxOrphan || d.kind == Drift::nginxStale) {
            nginxOrphans.append(d.binding.httpPort);
        } else if (d.kind == Drift::mediaOrphan) {
            Json::Value entry(Json::objectValue);
            entry["deviceIndex"] = d.listener.deviceIndex;
            entry["rtspPort"] = d.listener.rtspPort;
            mediaOrphans.append(entry);
        }
    }
    if (views.nginxMaster == 0) {
        problems.append("nginx does not run");
    }
    if (!views.mediaAnswered) {
        problems.append("the media daemon does not answer");
    }
    return json;
}

}  // namespace gatewayd
