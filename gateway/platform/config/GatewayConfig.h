#pragma once

#include <sys/stat.h>

#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "ZQGatewayHome.h"

namespace zqgw {

// Everything gateway.json holds.
struct ConfigContent {
    int telmiParam = 0;
    ZQGateway::tagGatewaySettings settings;
    std::map<std::string, std::string> userHA1;  // gateway user -> HA1
};

// gateway.json in the home. Read again whenever the file on disk changed, so a change made by
// another process is seen by the next call; written under an exclusive lock on a lock file.
class GatewayConfig {
public:
    static GatewayConfig& instance();

    // The content, or the defaults when the file is absent; configUnreadable with the defaults
    // when the file is not valid JSON.
    int read(ConfigContent& content);
    // Applies change to the freshest content and persists it; the file is left untouched when
    // it is unreadable or when change returns non-zero (which is then the result).
    int modify(const std::function<int(ConfigContent&)>& change);

private:
    int reloadLocked();

    std::mutex mutex_;
    std::string path_;
    bool loaded_ = false;
    struct stat stamp_ {};
    int status_ = ZQGateway::configOk;
    ConfigContent cached_;
};

}  // namespace zqgw
