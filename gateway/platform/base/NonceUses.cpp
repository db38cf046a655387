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

bool NonceUses::proven(int64_t issuedAt, uint64_t random, const Proof& proof) {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto it = seen_.find(Key {issuedAt, random});
    return it != seen_.end() && proof.macs == std::string_view(it->second.macs.data(), kMacDigits) &&
           proof.scope == it->second.scope;
}

bool NonceUses::admit(int64_t issuedAt, uint64_t random, uint32_t count, int64_t oldestLive, const Proof& proof) {
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
        Seen& fresh = seen_[key];
        fresh.highest = count;
        fresh.window.set(0);
        proof.macs.copy(fresh.macs.data(), std::min(proof.macs.size(), kMacDigits));
        fresh.scope = proof.scope;
        return true;
    }
    Seen& s = it->second;
    if (count > s.highest) {
        // Shifting by the window's width or more empties it.
        s.window <<= count - s.highest;
        s.window.set(0);
        s.highest = count;
        return true;
    }
    const uint32_t behind = s.highest - count;
    if (behind >= kWindow || s.window.test(behind)) {
        return false;
    }
    s.window.set(behind);
    return true;
}

}  // namespace zqbase
