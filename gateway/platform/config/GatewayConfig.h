#pragma once

#include <json/json.h>
#include <sys/stat.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "ZQGatewayHome.h"
#include "config/FileChangeWatch.h"

namespace zqgw {

// Everything gateway.json holds.
struct ConfigContent {
    int telmiParam = 0;
    ZQGateway::tagGatewaySettings settings;
    std::map<std::string, std::string> userHA1;     // gateway user (TELMI realm) -> HA1
    std::map<std::string, std::string> managerHA1;  // management API user (its own realm) -> HA1
};

// The content as gateway.json holds it.
Json::Value contentJson(const ConfigContent& content);

// gateway.json in the home. Read again whenever the file on disk changed, so a change made by
// another process is seen by the next call; written under an exclusive lock on a lock file.
// Every TELMI request reads it from many threads at once: a read shares the parsed content
// instead of copying it, and looks at the file only when its folder's watch saw it change.
class GatewayConfig {
public:
    struct Snapshot {
        int status;
        std::shared_ptr<const ConfigContent> content;  // never null
    };

    static GatewayConfig& instance();

    // The content, or the defaults when the file is absent; configUnreadable with the defaults
    // when the file is not valid JSON, configNoHome with the defaults when there is no home.
    // While the calling thread holds its reads, the first one's snapshot.
    Snapshot read();
    // Holds (or releases) the calling thread's reads, as ZQ_Gateway_HoldSettings describes.
    static void holdReads(bool hold);
    // Applies change to the freshest content and persists it; the file is left untouched when
    // it is unreadable or when change returns non-zero (which is then the result).
    int modify(const std::function<int(ConfigContent&)>& change);

private:
    Snapshot readFile();
    // The path of gateway.json, empty while there is no home.
    std::string pathLocked();
    // Brings the cache in step with the file as stat found it (present or not).
    void refreshLocked(bool present, const struct stat& now);

    std::mutex mutex_;
    std::string path_;
    std::optional<FileChangeWatch> watch_;
    bool loaded_ = false;
    struct stat stamp_ {};
    int status_ = ZQGateway::configOk;
    std::shared_ptr<const ConfigContent> cached_ = std::make_shared<const ConfigContent>();
};

}  // namespace zqgw
