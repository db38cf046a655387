// The wall clock in whole seconds since the epoch: what nonces, lock-outs and reservations are
// stamped and aged with.
#pragma once

#include <chrono>
#include <cstdint>

namespace gwio {

inline int64_t nowSeconds() {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace gwio
