// The gateway home of a fuzz target that reaches the reference platform (nonce secret, device
// store, settings): the one the runner names in ZQ_GATEWAY_HOME, or a fresh private one, never
// the user's own ~/.zqgateway.
#pragma once

#include <cstdlib>
#include <string>

namespace zqfuzz {

inline void useScratchHome() {
    if (const char* home = std::getenv("ZQ_GATEWAY_HOME"); home != nullptr && home[0] != '\0') {
        return;
    }
    std::string pattern = std::string(std::getenv("TMPDIR") != nullptr ? std::getenv("TMPDIR") : "/tmp") +
                          "/zqfuzz-home-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        std::abort();
    }
    ::setenv("ZQ_GATEWAY_HOME", pattern.c_str(), 1);
}

}  // namespace zqfuzz
