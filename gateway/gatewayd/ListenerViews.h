// What the store, nginx and the media daemon each say is listened on, and where they disagree.
//
// The views are read listeners first, store last. Binding writes the store record before it
// opens the listeners, and unbinding closes the listeners before it drops the record, so a
// listener seen before the store was read belongs to a binding that the store still shows,
// unless it is an orphan or on its way out: a bind or unbind in progress never looks like an
// orphan. It can look like a missing listener for a moment, which is why the reconciler only
// repairs what two passes in a row found.
#pragma once

#include <json/json.h>

#include <set>
#include <string>
#include <vector>

namespace gatewayd {

struct StoredBinding {
    std::string portIndex;
    std::string deviceIndex;
    int httpPort = 0;
    int rtspPort = 0;  // 0: none
};

struct MediaListener {
    std::string deviceIndex;
    int rtspPort = 0;
    bool listening = false;  // false: the daemon keeps the entry but could not open the port
};

// An HTTP port as nginx serves it.
enum class NginxPortState { listening, notLoaded, heldByOther };

struct ListenerViews {
    bool mediaAnswered = false;
    std::vector<MediaListener> media;
    int nginxMaster = 0;  // 0: nginx does not run
    std::set<int> nginxConfigured;
    std::set<int> nginxListening;
    std::set<int> heldByOther;  // configured or bound ports another program listens on
    // Ports of the HTTP range nginx still listens on but no longer lists: an edit of its list
    // that no reload followed (an unbind whose store step failed does not reload).
    std::set<int> nginxUnlisted;
    std::vector<StoredBinding> store;
};

// One disagreement; key names it across passes ("nginx-missing:16010").
struct Drift {
    enum Kind { nginxMissing, nginxOrphan, nginxNotLoaded, nginxStale, mediaMissing, mediaOrphan } kind;
    std::string key;
    std::string what;        // for the log and for people
    StoredBinding binding;   // the binding concerned (missing, not loaded; only its port when orphan or stale)
    MediaListener listener;  // the listener concerned (media orphan)
};

ListenerViews readListenerViews();
// Every disagreement; a daemon that does not run (or answer) is the supervisor's, not drift.
std::vector<Drift> findDrift(const ListenerViews& views);
// {"inStep", "nginxRunning", "mediaAnswered", "bindings": [...], "orphans": {"nginx", "media"}}
Json::Value listenerViewsJson(const ListenerViews& views, const std::vector<Drift>& drift);

}  // namespace gatewayd
