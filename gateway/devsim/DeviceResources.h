// The TELMI resources a simulated device serves, by path, with their initial values.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "DeviceSpec.h"
#include "TelmiResource.h"

namespace devsim {

using DeviceResources = std::map<std::string, std::unique_ptr<TelmiResource>>;

DeviceResources makeDeviceResources(const DeviceSpec& device);

}  // namespace devsim
