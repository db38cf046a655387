#pragma once

#include <string>

#include "UniqueFd.h"

namespace zqgw {

// Whether a file may have changed, told by an inotify watch on its folder: reading an empty
// event queue costs a fraction of the path lookup of a stat, which every TELMI check would
// otherwise pay. Not thread-safe: its owner serialises the calls.
class FileChangeWatch {
public:
    explicit FileChangeWatch(const std::string& path);

    // True when the file may have changed since the previous call: always on the first call,
    // and on every call while the folder cannot be watched (it was removed, or the system's
    // inotify limits are reached); the caller then looks at the file itself.
    bool changed();

private:
    std::string folder_;
    std::string name_;
    gwio::UniqueFd inotify_;
    unsigned forksSeen_ = 0;
};

}  // namespace zqgw
