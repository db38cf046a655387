// Brings nginx's and the media daemon's listeners in step with the stored bindings, through the
// platform calls the library itself uses (nginx's port list and reload, the media daemon's
// PutMediaPort); the store is never touched.
//
// A pass reads the three views (ListenerViews.h) and repairs the disagreements that the pass
// before it found too, so that a bind or unbind in progress, whose listeners lag its store
// record for a moment, is never taken for drift. A forced pass (a daemon just started, or an
// administrator asked) repairs everything it finds.
#pragma once

#include <json/json.h>

#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "ListenerViews.h"

namespace gatewayd {

class Reconciler {
public:
    // One pass; what it repaired, for people.
    std::vector<std::string> pass(bool force);
    // The three views side by side, read now (GET /api/listeners).
    Json::Value viewsJson() const;
    // {"time", "what"} of the last repair; null when none was made.
    Json::Value lastRepairJson() const;

private:
    void repair(const std::vector<Drift>& drift);
    void remember(const std::vector<std::string>& repaired);

    std::mutex passMutex_;  // one pass at a time: the timer's and an administrator's
    std::set<std::string> seenBefore_;
    std::set<std::string> logged_;
    mutable std::mutex lastMutex_;
    Json::Value lastRepair_;
};

}  // namespace gatewayd
