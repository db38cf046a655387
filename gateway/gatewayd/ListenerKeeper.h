// The service's housekeeping thread: every second the supervisor looks after the media daemon
// and nginx; every listenerCheckSec (gateway.json, 2 s by default) the reconciler compares
// their listeners with the stored bindings, and at once (forced) after it started one of them
// again.
#pragma once

#include <json/json.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "Reconciler.h"
#include "Supervisor.h"

namespace gatewayd {

class ListenerKeeper {
public:
    explicit ListenerKeeper(std::string mediadProgram) : supervisor_(std::move(mediadProgram)) {}
    ~ListenerKeeper() { stop(); }

    void start();
    void stop();

    Reconciler& reconciler() { return reconciler_; }
    // {"daemons": [...], "lastRepair": {...} or null}
    Json::Value healthJson() const;

private:
    void run();

    Supervisor supervisor_;
    Reconciler reconciler_;
    mutable std::mutex mutex_;  // the supervisor's state, read by the API
    std::condition_variable wake_;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace gatewayd
