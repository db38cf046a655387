#include "base/NonceUses.h"

#include <algorithm>

namespace zqbase {

void NonceUses::forgetBefore(int64_t issuedAt) {
    while (!seen_.empty() && seen_.begin()->first.first < issuedAt) {
        forgetEarliest();
    }
}

void NonceUses::forgetEarliest() {
    forgottenUpTo_ = std::max(forgottenUpTo_, seen_.begin()->first.first);
    seen_.erase(seen_.begin());
}

bool NonceUses::admit(int64_t issuedAt, uint64_t random, uint32_t count, int64_t oldestLive) {
    std::lock_guard<std::mutex> lock(mutex_);
    forgetBefore(oldestLive);
    const Key key {issuedAt, random};
    auto it = seen_.find(key);
    if (it == seen_.end()) {
        if (issuedAt <= forgottenUpTo_) {
            return false;
        }
        if (seen_.size() >= kCapacity) {
            forgetEarliest();
            if (issuedAt <= forgottenUpTo_) {
                return false;
            }
        }
        seen_[key] = Seen {count, 1};
        return true;
    }
    Seen& s = it->second;
    if (count > s.highest) {
        const uint32_t shift = count - s.highest;
        s.window = shift >= kWindow ? 0 : s.window << shift;
        s.window |= 1;
        s.highest = count;
        return true;
    }
    const uint32_t behind = s.highest - count;
    if (behind >= kWindow || (s.window & (uint64_t {1} << behind)) != 0) {
        return false;
    }
    s.window |= uint64_t {1} << behind;
    return true;
}

}  // namespace zqbase
