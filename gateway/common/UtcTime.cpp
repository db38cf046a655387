#include "UtcTime.h"

#include <ctime>

namespace gwio {

std::string utcTimestamp() {
    const std::time_t now = std::time(nullptr);
    std::tm utc {};
    ::gmtime_r(&now, &utc);
    char stamp[32];
    std::strftime(stamp, sizeof(stamp), "%Y-%m-%dT%H:%M:%SZ", &utc);
    return stamp;
}

}  // namespace gwio
