// The time as the gateway's programs print it for people: UTC, to the second.
#pragma once

#include <string>

namespace gwio {

// "2026-11-25T12:00:00Z", now.
std::string utcTimestamp();

}  // namespace gwio
