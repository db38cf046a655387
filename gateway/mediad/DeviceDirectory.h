// The devices' RTSP addresses, read from the device store at each use, so that devices the host
// process adds or changes are seen without a restart.
#pragma once

#include <string>

namespace mediad {

enum class DeviceLookup { found, unknown, storeFailed };

DeviceLookup lookupRtspAddress(const std::string& deviceIndex, std::string& rtspAddress);

}  // namespace mediad
